// libpng's reports turned into errors and notices. It gets its memory here, since its report of a lack of memory differs from
// others by its text alone.
#include "codec/png_common.h"

#include <cstdlib>
#include <new>

namespace codec {

namespace {

void on_error(png_structp png, png_const_charp text) { static_cast<Trouble *>(png_get_error_ptr(png))->fail(text); }
void on_warning(png_structp png, png_const_charp text) { static_cast<Trouble *>(png_get_error_ptr(png))->warn(text); }

png_voidp allocate(png_structp png, png_alloc_size_t size) {
    png_voidp const memory = std::malloc(size);
    if (memory == nullptr) {
        static_cast<Trouble *>(png_get_mem_ptr(png))->note_exhausted_memory();
    }
    return memory;
}

void release(png_structp, png_voidp memory) { std::free(memory); }

using Create = png_structp (*)(png_const_charp, png_voidp, png_error_ptr, png_error_ptr, png_voidp, png_malloc_ptr,
                               png_free_ptr);

png_structp created(Create create, Trouble &trouble) {
    png_structp const png = create(PNG_LIBPNG_VER_STRING, &trouble, on_error, on_warning, &trouble, allocate, release);
    if (png == nullptr) {
        throw std::bad_alloc();
    }
    return png;
}

} // namespace

png_structp create_png_reader(Trouble &trouble) { return created(png_create_read_struct_2, trouble); }
png_structp create_png_writer(Trouble &trouble) { return created(png_create_write_struct_2, trouble); }

} // namespace codec
