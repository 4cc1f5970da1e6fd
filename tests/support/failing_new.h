// Memory that runs out when a test wants it to. Link failing_new.cpp: the program's operator new then serves
// the shared libraries, too.
#pragma once

namespace test {

// Lets the allocation after nMore more ones fail (once); a negative number means none.
void FailNewAfter(int nMore);
// Whether the failure that was asked for is still to come.
bool FailureIsPending();

}  // namespace test
