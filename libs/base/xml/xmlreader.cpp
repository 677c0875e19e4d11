// XmlReader: expat's UTF-16 build driven over a whole file, building the element tree.
#include "base/xml/xmlreader.h"

#include <expat.h>

#include <QFile>

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "base/xml/expatw_p.h"

namespace mirel {

static_assert(std::is_same_v<XML_Char, XmlReader::Char>, "expat must be the UTF-16 build");

XmlReader::XmlReader(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Could not open file \"") + path + QLatin1Char('"');
        return;
    }
    QString why;
    const detail::ExpatW* expat = detail::expatW(&why);
    if (expat == nullptr) {
        error = why;
        return;
    }
    parser = expat->parserCreate(nullptr);
    if (parser == nullptr) {
        error = QStringLiteral("Parse error: ") + QString::fromLatin1(expat->errorString(XML_ERROR_NO_MEMORY));
        return;
    }
    expat->setUserData(parser, this);
    expat->setElementHandler(parser, &XmlReader::startElement, &XmlReader::endElement);
    expat->setCharacterDataHandler(parser, &XmlReader::characters);

    parseAll(file.readAll());

    expat->parserFree(parser);
    parser = nullptr;
    file.close();
    // Nothing of the parse is needed any more; the tree keeps its names through sharing.
    text.clear();
    text.squeeze();
    mHasText = false;
    stack.clear();
    stack.shrink_to_fit();
    mNames.reset();
}

void XmlReader::parseAll(const QByteArray& bytes) {
    const detail::ExpatW* expat = detail::expatW();
    // One call, marked final, as long as the length fits expat's int; a longer file goes in
    // pieces, which gives the same tree and the same error positions.
    constexpr qsizetype kPiece = qsizetype{1} << 30;
    qsizetype at = 0;
    XML_Status status = XML_STATUS_OK;
    do {
        const qsizetype n = std::min<qsizetype>(bytes.size() - at, kPiece);
        const bool last = at + n == bytes.size();
        status = expat->parse(parser, bytes.constData() + at, static_cast<int>(n), last ? 1 : 0);
        at += n;
    } while (status == XML_STATUS_OK && at < bytes.size());
    if (status == XML_STATUS_OK) return;

    const XML_Error code = expat->getErrorCode(parser);
    const char* message = expat->errorString(code);
    error = QStringLiteral("Parse error: ");
    if (message != nullptr) error += QString::fromLatin1(message);
    error += QStringLiteral("\nat line: %1, column: %2")
                 .arg(expat->getCurrentLineNumber(parser))
                 .arg(expat->getCurrentColumnNumber(parser));
    discardTree();
}

void XmlReader::discardTree() {
    stack.clear();
    mTree.reset();
    root = nullptr;
}

XmlReader::XmlReader(const XmlReader&) = default;
XmlReader& XmlReader::operator=(const XmlReader&) = default;

XmlReader::~XmlReader() {
    // The tree goes with the last reader that shares it (mTree). A parser is held only while
    // the constructor runs, but a reader destroyed from a callback must not leak it.
    if (parser != nullptr) {
        if (const detail::ExpatW* expat = detail::expatW()) expat->parserFree(parser);
    }
}

bool XmlReader::getErrorsOccurred() const { return !error.isEmpty(); }

void XmlReader::startElement(void* userData, const Char* name, const Char** attributes) {
    static_cast<XmlReader*>(userData)->startElement(name, attributes);
}

void XmlReader::endElement(void* userData, const Char* name) {
    static_cast<XmlReader*>(userData)->endElement(name);
}

void XmlReader::characters(void* userData, const Char* data, int length) {
    static_cast<XmlReader*>(userData)->characters(data, length);
}

// Nodes of one name share one string: less memory per node and no allocation for names
// already seen. A small direct-mapped table is enough, since a document uses few names, and
// a name that loses its slot merely gets a string of its own.
const QString& XmlReader::internedName(const Char* name) {
    std::uint32_t hash = 2166136261u;
    std::size_t length = 0;
    for (; name[length] != 0; ++length) hash = (hash ^ name[length]) * 16777619u;
    // Made on first use, so that events fed by hand after construction work too.
    if (!mNames) mNames = std::make_unique<QString[]>(kNameSlots);
    QString& slot = mNames[hash % kNameSlots];
    if (slot.size() != static_cast<qsizetype>(length) ||
        std::memcmp(slot.utf16(), name, length * sizeof(Char)) != 0) {
        slot = QString(reinterpret_cast<const QChar*>(name), static_cast<qsizetype>(length));
    }
    return slot;
}

void XmlReader::clearText() {
    // The buffer keeps its capacity: most runs between tags are a line break and indentation.
    if (mHasText) {
        text.clear();
        mHasText = false;
    }
}

void XmlReader::startElement(const Char* name, const Char** /*attributes*/) {
    clearText();

    const QString& interned = internedName(name);
    auto* node = new XmlNode(interned);
    if (stack.empty()) {
        root = node;
        mTree.reset(node, [](XmlNode* n) { n->destroySelfAndHierarchy(); });
    } else {
        stack.back()->addChild(node);
    }
    stack.push_back(node);
}

void XmlReader::endElement(const Char* /*name*/) {
    if (!stack.empty()) {
        stack.back()->value = trimmedText();
        stack.pop_back();
    }
    clearText();
}

// QString::trimmed's rule, QChar::isSpace unit by unit at both ends, without a temporary
// string. Nothing since the last tag gives a null value, blanks only an empty one.
QString XmlReader::trimmedText() const {
    if (!mHasText) return QString();
    const char16_t* begin = text.constData();
    const char16_t* end = begin + text.size();
    while (begin < end && QChar::isSpace(*begin)) ++begin;
    while (end > begin && QChar::isSpace(end[-1])) --end;
    return QString(reinterpret_cast<const QChar*>(begin), end - begin);
}

void XmlReader::characters(const Char* data, int length) {
    if (length <= 0) return;
    text.append(reinterpret_cast<const char16_t*>(data), length);
    mHasText = true;
}

}  // namespace mirel
