// Memory for the reports themselves: a failure in the middle of a report writes the allocator's line and reports no further, so
// that a report never starts another.
#ifndef KO_SRC_HEAP_REPORT_H
#define KO_SRC_HEAP_REPORT_H

#include <cstdint>

namespace ko {

void print_allocation_failure(int32_t size);

// As KoMalloc, but a failure sets no status.
[[nodiscard]] void *allocate_for_report(int32_t size);

} // namespace ko

#endif
