#include "output/json.h"

#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

namespace qiven::json {

using nlohmann::ordered_json;

struct Tree {
    ordered_json value;
};

namespace {

constexpr uint64_t kSchema = 1;

// The destructor of the library allocates memory for nested values, and cannot report a failure, so they are
// removed first. The trees of the command are only a few levels deep.
void Empty(ordered_json &value) {  // NOLINT(misc-no-recursion)
    if (value.is_structured())
        for (ordered_json &child : value)
            Empty(child);
    value.clear();
}

}  // namespace

void Deleter::operator()(Tree *pTree) const {
    Empty(pTree->value);
    delete pTree;
}

Node Object() {
    return Node(new Tree{ordered_json::object()});
}

Node Document() {
    Node object = Object();
    Set(object, "schema", kSchema);
    return object;
}

Node Array() {
    return Node(new Tree{ordered_json::array()});
}

Node Of(const output::Value &value) {
    Node node(new Tree{});
    ordered_json &member = node->value;
    std::visit(
        [&member](const auto &v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                member = nullptr;
            } else if constexpr (std::is_same_v<T, std::vector<output::Change>>) {
                member = ordered_json::array();
                for (const output::Change &change : v)
                    member.push_back({{"field", change.field}, {"was", change.was}, {"now", change.now}});
            } else {
                member = v;
            }
        },
        value);
    return node;
}

void Set(const Node &object, const std::string &name, const output::Value &value) {
    Set(object, name, Of(value));
}

void Set(const Node &object, const std::string &name, Node value) {
    object->value[name] = std::move(value->value);
}

void Append(const Node &array, Node value) {
    array->value.push_back(std::move(value->value));
}

bool IsEmpty(const Node &node) {
    return node->value.empty();
}

std::string Text(const Node &node, int nIndent) {
    return node->value.dump(nIndent, ' ', true, ordered_json::error_handler_t::replace);
}

}  // namespace qiven::json
