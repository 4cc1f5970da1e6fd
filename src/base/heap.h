// Memory from malloc() that is freed when its scope ends. The library does not use new, which can throw.
#pragma once

#include <cstdlib>
#include <memory>

namespace qiven::base {

struct FreeBlock {
    void operator()(void *pBlock) const { free(pBlock); }
};

template <class Element>
using HeapBlock = std::unique_ptr<Element, FreeBlock>;

}  // namespace qiven::base
