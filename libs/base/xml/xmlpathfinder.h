// XmlPathFinder: finds an element of an XmlNode tree by a slash-separated path of element
// names. The first name is the root element's own; empty pieces are ignored, so "/a/b/",
// "a//b" and "a/b" are one path. Names match exactly (case-sensitive), and where siblings
// share a name only the first can be reached.
#pragma once

#include <QString>

#include "base/mirel_export.h"
#include "base/xml/xmlnode.h"

namespace mirel {

class MIREL_EXPORT XmlPathFinder {
public:
    // The node at `path` under `root` (whose name must be the path's first piece), or null
    // when there is none, when the path has no pieces or when `root` is null. Stateless and
    // reentrant; the tree must not change meanwhile.
    XmlNode* find(XmlNode* root, const QString& path) const;
    // The first child of `node`, in document order, named `name`; null if none or if `node`
    // is null.
    XmlNode* findChild(XmlNode* node, const QString& name) const;
};

}  // namespace mirel
