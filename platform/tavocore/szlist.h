#ifndef TAVOCORE_SZLIST_H
#define TAVOCORE_SZLIST_H

#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tavocore.h"

struct TLIBC_SZLIST {
    std::vector<std::string> rgItem;

    // Takes whole batches, so that memory running out halfway leaves no part of one behind.
    void Append(std::vector<std::string> rgMore) {
        rgItem.insert(rgItem.end(), std::make_move_iterator(rgMore.begin()),
                      std::make_move_iterator(rgMore.end()));
    }
};

#endif
