#pragma once
// Records the largest single allocation made through operator new, so that a
// test can tell a reader that trusts a hostile count from one that does not.

#include <cstddef>

namespace prc::test {

class LargestAllocation {
public:
    LargestAllocation();   // starts watching (resets the maximum)
    ~LargestAllocation();  // stops watching
    std::size_t bytes() const;
};

}  // namespace prc::test
