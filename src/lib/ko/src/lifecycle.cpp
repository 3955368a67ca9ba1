// Start and end of the library. The order of the steps is fixed: status service, curve pool, switch for packed arithmetic,
// text format, plug-in; at the end text format, curve pool, status service, and last the plug-in.
#include "ko/lifecycle.h"

#include "ko/error.h"
#include "ko/imageformat.h"
#include "platform.h"
#include "trc_pool.h"

namespace {

int32_t init_count = 0;
void *plugin = nullptr;
// Of the plug-in that is loaded now, or null.
ko::ModuleEntry plugin_release = nullptr;

void set_text_format(KoRealImageLoadFunction load, KoRealImageSaveFunction save, KoColorImageLoadFunction load_color,
                     KoColorImageSaveFunction save_color) {
    KoRealImageSetLoadFunction(KO_IMAGE_FORMAT_TEXT, load);
    KoRealImageSetSaveFunction(KO_IMAGE_FORMAT_TEXT, save);
    KoColorImageSetLoadFunction(KO_IMAGE_FORMAT_TEXT, load_color);
    KoColorImageSetSaveFunction(KO_IMAGE_FORMAT_TEXT, save_color);
}

int32_t load_plugin(void *first, void *second) {
    plugin_release = nullptr;
    plugin = ko::module_load(ko::plugin_file_name);
    if (plugin == nullptr) {
        return KO_OK;
    }
    const ko::ModuleEntry init = ko::module_entry(plugin, "KoIOInit");
    if (init == nullptr) {
        return KO_OK;
    }
    plugin_release = ko::module_entry(plugin, "KoIORelease");
    return reinterpret_cast<int32_t (*)(void *, void *)>(init)(first, second);
}

int32_t unload_plugin() {
    int32_t result = KO_OK;
    if (plugin_release != nullptr) {
        result = reinterpret_cast<int32_t (*)()>(plugin_release)();
    }
    if (plugin != nullptr) {
        result = ko::module_unload(plugin);
    }
    return result;
}

} // namespace

int32_t KoInit(void *first, void *second) {
    ++init_count;
    if (init_count != 1) {
        return init_count;
    }
    KoErrorClassInit();
    ko::_KoTRCPoolInit();
    KoSSEInit();
    set_text_format(KoRealImageLoadTXT, KoRealImageSaveTXT, KoColorImageLoadTXT, KoColorImageSaveTXT);
    return load_plugin(first, second);
}

int32_t KoRelease(void) {
    if (init_count < 1) {
        return init_count;
    }
    --init_count;
    if (init_count != 0) {
        return init_count;
    }
    set_text_format(nullptr, nullptr, nullptr, nullptr);
    ko::_KoTRCPoolFinish();
    KoErrorClassRelease();
    return unload_plugin();
}
