// Things of which the caller is to be told, in order. Each is in a queue once at most, so a queue needs no
// memory of its own and cannot overflow.
#pragma once

#include <cstdint>

namespace qiven::watch {

enum class Of { kHost, kLost, kFull, kInterfaces, kRound, kSettled };

struct NodeQueue;

struct Node {
    Of of;
    Node *pBefore = nullptr, *pAfter = nullptr;
    NodeQueue *pIn = nullptr;
    uint64_t ullSinceUs = 0;  // when it was put there
};

struct NodeQueue {
    Node *pFirst = nullptr, *pLast = nullptr;
};

inline void PutLast(NodeQueue &queue, Node &node, uint64_t ullNowUs) {
    node.pIn = &queue;
    node.ullSinceUs = ullNowUs;
    node.pBefore = queue.pLast;
    node.pAfter = nullptr;
    (queue.pLast != nullptr ? queue.pLast->pAfter : queue.pFirst) = &node;
    queue.pLast = &node;
}

inline void TakeOut(Node &node) {
    NodeQueue *pQueue = node.pIn;
    if (pQueue == nullptr) return;
    (node.pBefore != nullptr ? node.pBefore->pAfter : pQueue->pFirst) = node.pAfter;
    (node.pAfter != nullptr ? node.pAfter->pBefore : pQueue->pLast) = node.pBefore;
    node.pBefore = node.pAfter = nullptr;
    node.pIn = nullptr;
}

// Leaves it where it is if it waits already.
inline void PutOnce(NodeQueue &queue, Node &node, uint64_t ullNowUs) {
    if (node.pIn == nullptr) PutLast(queue, node, ullNowUs);
}

}  // namespace qiven::watch
