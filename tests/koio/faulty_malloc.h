// Memory that is exhausted on demand for everything in the process, the C libraries included, for programs that have the source
// among theirs: it replaces malloc.
#ifndef KO_TESTS_KOIO_FAULTY_MALLOC_H
#define KO_TESTS_KOIO_FAULTY_MALLOC_H

namespace ko_test {

// Makes the allocation with a number, counted from 1, fail in this thread, and those after it too if the fault stays.
void fail_malloc(int number, bool stays);

// Ends it. True if an allocation failed.
bool end_of_malloc_failures();

} // namespace ko_test

#endif
