// The input, written to a file, goes through the XML reader. Either the tree is built and no
// error is set, or there is an error and no tree; a built tree must be linked consistently,
// hold trimmed values, answer a path to its first-child chain with that chain's last node,
// and stay whole in a copy when the first reader goes.
#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "base/xml/xmlreader.h"
#include "base/xml/xmltree.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// One file per fuzzing process, removed when it exits.
struct InputFile {
    InputFile()
        : path(QDir::temp().filePath(QStringLiteral("mirel-xml-fuzz-%1.xml").arg(QCoreApplication::applicationPid()))) {}
    ~InputFile() { QFile::remove(path); }
    QString path;
};

const QString& inputPath() {
    static const InputFile file;
    return file.path;
}

bool isTrimmed(const QString& s) { return s.isEmpty() || (!s.front().isSpace() && !s.back().isSpace()); }

// Every node once, in document order, without recursion; returns the count.
long checkTree(const mirel::XmlNode* root) {
    require(root->parent == nullptr && root->prevSibling == nullptr && root->nextSibling == nullptr);
    long count = 0;
    for (const mirel::XmlNode* node = root; node != nullptr;) {
        ++count;
        require(!node->name.isEmpty());
        require(node->marker == 1);
        require(isTrimmed(node->value));
        const mirel::XmlNode* prev = nullptr;
        for (const mirel::XmlNode* c = node->firstChild; c != nullptr; c = c->nextSibling) {
            require(c->parent == node && c->prevSibling == prev);
            prev = c;
        }
        require(node->lastChild == prev);
        if (node->firstChild != nullptr) {
            node = node->firstChild;
            continue;
        }
        while (node != root && node->nextSibling == nullptr) node = node->parent;
        node = node == root ? nullptr : node->nextSibling;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        QFile f(inputPath());
        require(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        require(f.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size)) ==
                static_cast<qint64>(size));
    }
    auto reader = std::make_unique<mirel::XmlReader>(inputPath());
    if (reader->root == nullptr) {
        require(reader->getErrorsOccurred());
        require(reader->error.startsWith(QStringLiteral("Parse error: ")));
        require(reader->error.contains(QStringLiteral("\nat line: ")));
        return 0;
    }
    require(!reader->getErrorsOccurred());
    checkTree(reader->root);

    QString path = reader->root->name;
    const mirel::XmlNode* deepest = reader->root;
    while (deepest->firstChild != nullptr) {
        deepest = deepest->firstChild;
        path += QLatin1Char('/') + deepest->name;
    }
    // Names cannot hold "/", so the path is exact.
    const mirel::XmlReader copy(*reader);
    reader.reset();
    const QString value = mirel::XmlTree(copy.root).getValue(path);
    require(value == deepest->value && value.isNull() == deepest->value.isNull());
    return 0;
}
