// The rule of every curve file: what could be loaded survives its own file.
#ifndef KO_TESTS_FUZZ_ROUND_TRIP_H
#define KO_TESTS_FUZZ_ROUND_TRIP_H

#include <algorithm>
#include <string>

#include "harness.h"
#include "pictures.h"

namespace ko_fuzz {

// Loads a file into a fresh object and checks status, streams and record; gives the status.
//   family   New(): an object; Load(object, path); Look(object): checks the record, which is sound
template <class Family> int32_t load_and_look(const Family &family, const std::string &path, typename Family::Object *object) {
    KoStatusClear();
    const int32_t status = family.Load(object, path.c_str());
    expect_load_status(status, family.further_status(status));
    expect(open_streams() == 0, "a load closes its file");
    family.Look(object);
    return status;
}

// Saves an object and loads the file, which must give the same.
//   family   also Save(object, path, form), Same(object, object)
template <class Family> void expect_survives(const Family &family, const typename Family::Object *object, int32_t form) {
    const std::string path = private_path("saved");
    expect(family.Save(object, path.c_str(), form) == KO_OK, "what was loaded can be saved");
    expect(open_streams() == 0, "a save closes its file");
    const auto again = family.New();
    expect(load_and_look(family, path, again.get()) == KO_OK, "what was saved can be loaded");
    expect(family.Same(object, again.get()), "what was saved comes back");
}

// Loads the input. What could be loaded loads once more into the same object, and survives the forms that can hold it.
//   family   also form_count, Holds(form, object)
template <class Family> int fuzz_curve_file(const Family &family, const uint8_t *data, size_t size) {
    start();
    const std::string path = private_file("input", text_of(data, size));
    const auto object = family.New();
    if (load_and_look(family, path, object.get()) != KO_OK) {
        load_and_look(family, path, object.get());
        return 0;
    }
    const auto again = family.New();
    expect(load_and_look(family, path, again.get()) == KO_OK, "a file loads as often as it is asked to");
    expect(load_and_look(family, path, again.get()) == KO_OK, "a file loads over itself");
    expect(family.Same(object.get(), again.get()), "a file holds the same every time");
    for (int32_t form = 1; form <= family.form_count; ++form) {
        if (family.Holds(form, object.get())) {
            expect_survives(family, object.get(), form);
        }
    }
    return 0;
}

// For families whose files are text of one form.
template <class T> struct TextFamily {
    using Object = T;
    static constexpr int32_t form_count = 1;
    static bool Holds(int32_t, const Object *) { return true; }
    static int32_t further_status(int32_t) { return KO_ERR_READ_LINE; }
};

} // namespace ko_fuzz

#endif
