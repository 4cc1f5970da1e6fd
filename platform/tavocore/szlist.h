// The string list as the other files of this library see it.
#ifndef TAVOCORE_SZLIST_H
#define TAVOCORE_SZLIST_H

#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tavocore.h"

struct TLIBC_SZLIST {
    std::vector<std::string> rgItem;

    // Appends all strings, or none if memory runs out.
    void Append(std::vector<std::string> rgMore) {
        rgItem.insert(rgItem.end(), std::make_move_iterator(rgMore.begin()),
                      std::make_move_iterator(rgMore.end()));
    }
};

#endif
