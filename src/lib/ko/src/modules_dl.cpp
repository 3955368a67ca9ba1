// Modules as POSIX systems load them.
#include "platform.h"

#include <dlfcn.h>

namespace ko {

const char *const plugin_file_name = "koio.so";

void *module_load(const char *name) { return dlopen(name, RTLD_NOW | RTLD_LOCAL); }
ModuleEntry module_entry(void *module, const char *name) { return reinterpret_cast<ModuleEntry>(dlsym(module, name)); }
int32_t module_unload(void *module) { return dlclose(module); }

} // namespace ko
