// A walk along the nodes of a linked list, for range loops: for (uintptr_t value : nodes(list)).
#ifndef DT_BASE_NODES_H
#define DT_BASE_NODES_H

namespace dt {

template <typename Node> class Nodes {
public:
    class Iterator {
    public:
        explicit Iterator(Node *node) : node_(node) {}
        auto operator*() const { return node_->value; }
        Iterator &operator++() {
            node_ = node_->next;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return node_ != other.node_; }

    private:
        Node *node_;
    };

    explicit Nodes(Node *head) : head_(head) {}
    Iterator begin() const { return Iterator(head_); }
    Iterator end() const { return Iterator(nullptr); }

private:
    Node *head_;
};

// Every value of a list, front to back; nothing for null.
template <typename List> auto nodes(List *list) { return Nodes(list ? list->head : nullptr); }

} // namespace dt

#endif
