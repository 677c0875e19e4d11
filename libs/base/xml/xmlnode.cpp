// XmlNode: the element tree's links, appending in constant time and tearing down without
// recursion (a hostile file can nest elements far deeper than any thread's stack allows).
#include "base/xml/xmlnode.h"

namespace mirel {

XmlNode::XmlNode(const QString& n) : name(n) {}

XmlNode::~XmlNode() {
    // Post-order, leaves first: descend to a childless node, delete it (which unlinks it,
    // so its parent's firstChild advances), climb back one level and go on. Only leaves
    // reach this destructor from the loop, so it never nests.
    XmlNode* node = this;
    while (node->firstChild != nullptr || node != this) {
        while (node->firstChild != nullptr) node = node->firstChild;
        if (node == this) break;
        XmlNode* up = node->parent;
        delete node;
        node = up;
    }
    unlinkFromParent();
}

void XmlNode::unlinkFromParent() {
    if (parent == nullptr) return;
    if (prevSibling != nullptr) {
        prevSibling->nextSibling = nextSibling;
    } else if (parent->firstChild == this) {
        parent->firstChild = nextSibling;
    }
    if (nextSibling != nullptr) {
        nextSibling->prevSibling = prevSibling;
    } else if (parent->lastChild == this) {
        parent->lastChild = prevSibling;
    }
    parent = prevSibling = nextSibling = nullptr;
}

void XmlNode::addChild(XmlNode* child) {
    XmlNode* last = lastChild;
    // The remembered tail is trusted only while it still is the tail of this list.
    if (firstChild == nullptr) {
        last = nullptr;
    } else if (last == nullptr || last->parent != this || last->nextSibling != nullptr) {
        last = firstChild;
        while (last->nextSibling != nullptr) last = last->nextSibling;
    }
    child->prevSibling = last;
    child->nextSibling = nullptr;
    if (last != nullptr) {
        last->nextSibling = child;
    } else {
        firstChild = child;
    }
    lastChild = child;
    child->parent = this;
}

void XmlNode::destroySelfAndHierarchy() { delete this; }

}  // namespace mirel
