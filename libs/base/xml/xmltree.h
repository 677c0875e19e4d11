// XmlTree: a read-only view of an XmlNode tree (usually an XmlReader's `root`) for looking
// up leaf values by path. It owns nothing: the tree must outlive the view.
#pragma once

#include <QString>

#include "base/mirel_export.h"
#include "base/xml/xmlnode.h"

namespace mirel {

class MIREL_EXPORT XmlTree {
public:
    // A view of the tree under `root` (null makes an empty view).
    explicit XmlTree(XmlNode* root);
    // Frees nothing.
    ~XmlTree();

    XmlNode* getRootNode() const;
    // The trimmed text of the element at `path` (see XmlPathFinder: the first piece names
    // the root); a null string when no element is there.
    QString getValue(const QString& path);
    // Changes nothing and returns false: the tree cannot be written through a view.
    bool setValue(const QString& path, QString value);

private:
    XmlNode* root;
};

}  // namespace mirel
