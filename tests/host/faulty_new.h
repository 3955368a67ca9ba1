// Memory that is exhausted on demand, for programs that have this file among their sources: it replaces operator new.
#ifndef KO_TESTS_HOST_FAULTY_NEW_H
#define KO_TESTS_HOST_FAULTY_NEW_H

namespace ko_test {

// Makes the allocation with a number, counted from 1, fail in this thread; later ones succeed again.
void fail_allocation(int number);

// Ends it. True if an allocation failed.
bool end_of_failures();

} // namespace ko_test

#endif
