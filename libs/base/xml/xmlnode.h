// XmlNode: one element of the tree that XmlReader builds: its name, its trimmed text and
// the links to its parent, children and siblings. Attributes, comments and processing
// instructions are not kept.
//
// Walk the links directly, or look nodes up by path with XmlPathFinder / XmlTree. Nodes are
// made with plain new and owned by their parent; destroying a node destroys everything
// under it. A tree is not synchronised: share it between threads only for reading.
#pragma once

#include <QString>

#include <cstdint>

#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT XmlNode {
public:
    // A node with no links and a null value.
    explicit XmlNode(const QString& name);
    // Destroys the node's whole hierarchy (without recursion, so depth is no limit) and
    // unlinks the node from its parent's child list.
    ~XmlNode();
    XmlNode(const XmlNode&) = delete;
    XmlNode& operator=(const XmlNode&) = delete;

    // Appends `child` (unlinked, owned by nobody) as the last child; this node then owns it.
    // Constant time: the list's tail is remembered.
    void addChild(XmlNode* child);
    // Destroys all descendants, depth-first in document order, then this node, which is
    // unlinked from its parent first. The node must have been made with new.
    void destroySelfAndHierarchy();

    QString name;
    // Set to 1 at creation and never read by the library; free for the application's use.
    std::uint32_t marker = 1;
    XmlNode* parent = nullptr;  // null for the root
    XmlNode* firstChild = nullptr;
    XmlNode* prevSibling = nullptr;
    XmlNode* nextSibling = nullptr;
    // The element's text, trimmed; null until the element's end tag has been read.
    QString value;
    // The tail of the child list, kept by addChild and by destruction; links changed by hand
    // make addChild fall back to walking the list.
    XmlNode* lastChild = nullptr;

private:
    void unlinkFromParent();
};

}  // namespace mirel
