// JSON under construction. Only json.cpp sees the library's headers, which take the compiler seconds in each
// file.
#pragma once

#include <memory>
#include <string>

#include "output.h"

namespace qiven::json {

struct Tree;
struct Deleter {
    void operator()(Tree *pTree) const;
};
using Node = std::unique_ptr<Tree, Deleter>;

Node Object();
Node Array();

// Adds a member, or gives the one of that name another value. A column's value without anything is null.
void Set(const Node &object, const std::string &name, const output::Value &value);
void Set(const Node &object, const std::string &name, Node value);
void Append(const Node &array, Node value);

bool IsEmpty(const Node &node);

// The text, pure ASCII so that it is as safe on a terminal as a table; bytes that are no UTF-8 become U+FFFD.
// In one line, or with so many spaces for each level.
std::string Text(const Node &node, int nIndent = -1);

}  // namespace qiven::json
