// XmlTree: path look-ups on a tree someone else owns.
#include "base/xml/xmltree.h"

#include "base/xml/xmlpathfinder.h"

namespace mirel {

XmlTree::XmlTree(XmlNode* r) : root(r) {}

XmlTree::~XmlTree() = default;

XmlNode* XmlTree::getRootNode() const { return root; }

QString XmlTree::getValue(const QString& path) {
    const XmlNode* node = XmlPathFinder().find(root, path);
    return node != nullptr ? node->value : QString();
}

bool XmlTree::setValue(const QString& /*path*/, QString /*value*/) {
    // Writing was never supported; callers get a refusal, and the tree stays as it was.
    return false;
}

}  // namespace mirel
