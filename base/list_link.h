// Two-word intrusive ring links, shared by the command table's buckets and the list
// queries' nodes. A ring is circular and doubly linked; an empty ring's head points to
// itself both ways; walking follows next.
#pragma once

#include <cstddef>

struct ListLink {
    ListLink *prev;
    ListLink *next;
};

inline void INIT_LIST_HEAD(ListLink *head) { head->prev = head->next = head; }
inline bool list_empty(const ListLink *head) { return head->next == head; }
inline void list_add_tail(ListLink *link, ListLink *head) {
    link->prev = head->prev;
    link->next = head;
    head->prev->next = link;
    head->prev = link;
}

// Address of the record of type T whose member `member` is the link at `ptr`.
#define KORVEX_CONTAINER_OF(ptr, T, member) \
    reinterpret_cast<T *>(reinterpret_cast<char *>(ptr) - offsetof(T, member))

// Walks a ring from head to tail: for (OomNode *n : korvex::ring<OomNode>(head)) ...
// A null head is an empty ring.
namespace korvex {

template <class T>
class Ring {
public:
    explicit Ring(ListLink *head) : head_(head) {}

    class Iterator {
    public:
        explicit Iterator(ListLink *at) : at_(at) {}
        T *operator*() const { return KORVEX_CONTAINER_OF(at_, T, link); }
        Iterator &operator++() {
            at_ = at_->next;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return at_ != other.at_; }

    private:
        ListLink *at_;
    };

    Iterator begin() const { return Iterator(head_ != nullptr ? head_->next : nullptr); }
    Iterator end() const { return Iterator(head_); }

private:
    ListLink *head_;
};

template <class T>
Ring<T> ring(ListLink *head) {
    return Ring<T>(head);
}

}  // namespace korvex
