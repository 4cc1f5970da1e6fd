// Builds JSON. Only json.cpp includes the library's headers, which take seconds to compile.
#pragma once

#include <memory>
#include <string>

#include "output/output.h"

namespace qiven::json {

struct Tree;
struct Deleter {
    void operator()(Tree *pTree) const;
};
using Node = std::unique_ptr<Tree, Deleter>;

Node Object();
// An object of the documented output: its first member is the version of the schema.
Node Document();
Node Array();

Node Of(const output::Value &value);

// Adds or replaces a member. An empty value becomes null.
void Set(const Node &object, const std::string &name, const output::Value &value);
void Set(const Node &object, const std::string &name, Node value);
void Append(const Node &array, Node value);

bool IsEmpty(const Node &node);

// The text, pure ASCII so that it is safe on a terminal; bytes that are not UTF-8 become U+FFFD. In one line,
// or indented by nIndent spaces for each level.
std::string Text(const Node &node, int nIndent = -1);

}  // namespace qiven::json
