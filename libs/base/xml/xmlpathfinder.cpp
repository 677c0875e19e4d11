// XmlPathFinder: path look-up over the element tree.
#include "base/xml/xmlpathfinder.h"

#include <QStringList>

namespace mirel {

XmlNode* XmlPathFinder::find(XmlNode* root, const QString& path) const {
    const QStringList pieces = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (pieces.isEmpty()) return nullptr;
    if (root == nullptr || root->name != pieces.first()) return nullptr;
    XmlNode* node = root;
    for (qsizetype i = 1; i < pieces.size(); ++i) {
        node = findChild(node, pieces[i]);
        if (node == nullptr) return nullptr;
    }
    return node;
}

XmlNode* XmlPathFinder::findChild(XmlNode* node, const QString& name) const {
    if (node == nullptr) return nullptr;
    for (XmlNode* child = node->firstChild; child != nullptr; child = child->nextSibling) {
        if (child->name == name) return child;
    }
    return nullptr;
}

}  // namespace mirel
