// XmlReader: expat's UTF-16 build driven over a whole file, building the element tree.
#include "base/xml/xmlreader.h"

#include <expat.h>

#include <QFile>

#include <algorithm>
#include <climits>
#include <type_traits>

#include "base/xml/expatw_p.h"

namespace mirel {

static_assert(std::is_same_v<XML_Char, XmlReader::Char>, "expat must be the UTF-16 build");

namespace {

std::size_t unitsIn(const XmlReader::Char* s) {
    std::size_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

}  // namespace

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
    text = QString();
    mHasText = false;
    stack.clear();
    stack.shrink_to_fit();
    mNames = {};
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

void XmlReader::startElement(const Char* name, const Char** /*attributes*/) {
    text.truncate(0);
    mHasText = false;

    const QStringView view(reinterpret_cast<const char16_t*>(name), unitsIn(name));
    auto found = mNames.constFind(view);
    if (found == mNames.cend()) {
        const QString copy = view.toString();
        // The key views the stored string's own characters, which never move.
        found = mNames.insert(QStringView(copy), copy);
    }
    auto* node = new XmlNode(found.value());
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
        // QString::trimmed's rule (QChar::isSpace at both ends); nothing since the last tag
        // gives a null value, blanks only an empty one.
        stack.back()->value = mHasText ? QStringView(text).trimmed().toString() : QString();
        stack.pop_back();
    }
    text.truncate(0);
    mHasText = false;
}

void XmlReader::characters(const Char* data, int length) {
    if (length <= 0) return;
    text.append(reinterpret_cast<const QChar*>(data), length);
    mHasText = true;
}

}  // namespace mirel
