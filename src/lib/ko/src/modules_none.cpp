// Where nothing is loaded into a running program, as in WebAssembly, there is no plug-in.
#include "platform.h"

namespace ko {

const char *const plugin_file_name = "";

void *module_load(const char *) { return nullptr; }
ModuleEntry module_entry(void *, const char *) { return nullptr; }
int32_t module_unload(void *) { return 0; }

} // namespace ko
