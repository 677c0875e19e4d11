// XmlReader: reads a whole XML file into a tree of XmlNode elements (names and trimmed
// text; attributes, comments and processing instructions are dropped). Use it for small
// configuration and description files whose leaf values are then looked up by path with
// XmlTree; it is not a streaming parser: the file and its tree are held in memory.
//
// Parsing happens in the constructor and never throws. On failure `root` is null and
// `error` holds one of:
//   Could not open file "PATH"
//   Parse error: MESSAGE, a line break, then at line: LINE, column: COLUMN
// with expat's MESSAGE, LINE counted from 1 and COLUMN from 0
// (or, where the UTF-16 expat itself cannot be loaded, a message saying so).
//
// The text rule: an element's text is gathered from its start tag, restarted at every
// child's start and end tag, and trimmed at its end tag. So an element with children keeps
// only the text after its last child; the tree is meant for leaf values.
//
// Copies: a copy shares the tree (the same `root` pointer), and the tree is freed once,
// when the last reader that holds it is destroyed or assigned over. Shared trees may be
// read from several threads; the readers' reference counting is thread-safe.
#pragma once

#include <QString>
#include <QVarLengthArray>

#include <deque>
#include <memory>

#include "base/mirel_export.h"
#include "base/xml/xmlnode.h"

struct XML_ParserStruct;

namespace mirel {

class MIREL_EXPORT XmlReader {
public:
    // expat's character unit in its UTF-16 build (XML_Char).
    using Char = unsigned short;

    // Opens, reads and parses the file at `path`; see above for failures.
    explicit XmlReader(const QString& path);
    // Share the tree; see the note on copies above.
    XmlReader(const XmlReader&);
    XmlReader& operator=(const XmlReader&);
    // Frees the tree if this was its last reader.
    ~XmlReader();

    // True when `error` is not empty.
    bool getErrorsOccurred() const;

    // The parser's callbacks, called during construction. The static forms take the reader
    // as expat's user data and forward to the members. Attributes are ignored.
    static void startElement(void* userData, const Char* name, const Char** attributes);
    static void endElement(void* userData, const Char* name);
    static void characters(void* userData, const Char* data, int length);
    void startElement(const Char* name, const Char** attributes);
    void endElement(const Char* name);
    void characters(const Char* data, int length);

    // The document element, owned by the reader(s) that share it; null on failure. Do not
    // destroy it yourself.
    XmlNode* root = nullptr;
    // Empty when all went well, otherwise the message above.
    QString error;

private:
    void parseAll(const QByteArray& bytes);
    void discardTree();
    const QString& internedName(const Char* name);
    void clearText();
    QString trimmedText() const;

    // The character data since the last tag, as UTF-16 units in a buffer whose capacity is
    // reused (appending runs of text is the reader's hottest path); `mHasText` says whether
    // anything came since the last tag, which decides between a null and an empty value.
    QVarLengthArray<char16_t, 256> text;
    XML_ParserStruct* parser = nullptr;
    std::deque<XmlNode*> stack;  // the open elements, innermost last

    bool mHasText = false;
    // Owns the tree for every reader that shares it.
    std::shared_ptr<XmlNode> mTree;
    // Element names seen while parsing, so that nodes of one name share one string.
    static constexpr std::size_t kNameSlots = 256;
    std::shared_ptr<QString[]> mNames;
};

}  // namespace mirel
