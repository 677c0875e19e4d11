// mirel xml, mirel dict: the XML reader's tree and path look-ups, and the resource
// dictionary's line format, on the user's files.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

#include "base/xml/resourcedictionary.h"
#include "base/xml/xmlpathfinder.h"
#include "base/xml/xmlreader.h"
#include "base/xml/xmltree.h"
#include "command.h"

namespace mirel::tool {
namespace {

int failed(const QString& command, const QString& message, Output& out) {
    out.data["error"] = message;
    std::fprintf(stderr, "mirel: %s: %s\n", qPrintable(command), qPrintable(message));
    return 1;
}

// A value on one line: line breaks inside the trimmed text are shown as \n.
QString oneLine(const QString& value) {
    QString s = value;
    s.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('\n'), QStringLiteral("\\n"));
    s.replace(QLatin1Char('\r'), QStringLiteral("\\r"));
    return s;
}

QJsonValue jsonValue(const QString& value) { return value.isNull() ? QJsonValue() : QJsonValue(value); }

// Indentation stops growing here: a hostile file nests far deeper than a screen is wide,
// and the deeper lines carry their depth instead.
constexpr int kMaxIndent = 32;

// Document order without recursion, for the same reason.
void showTree(Output& out, XmlNode* root) {
    QJsonArray nodes;
    int count = 0;
    int maxDepth = 0;
    int depth = 0;
    for (XmlNode* node = root; node != nullptr;) {
        ++count;
        maxDepth = std::max(maxDepth, depth);
        if (out.json()) {
            nodes.append(QJsonObject{{"depth", depth}, {"name", node->name}, {"value", jsonValue(node->value)}});
        } else {
            QString line(std::min(depth, kMaxIndent) * 2, QLatin1Char(' '));
            if (depth > kMaxIndent) line += QStringLiteral("[%1] ").arg(depth);
            line += node->name;
            if (!node->value.isEmpty()) line += QStringLiteral(" = ") + oneLine(node->value);
            out.text() << line << '\n';
        }
        if (node->firstChild != nullptr) {
            node = node->firstChild;
            ++depth;
            continue;
        }
        while (node != nullptr && node != root && node->nextSibling == nullptr) {
            node = node->parent;
            --depth;
        }
        node = (node == nullptr || node == root) ? nullptr : node->nextSibling;
    }
    out.data["elements"] = count;
    out.data["maxDepth"] = maxDepth;
    if (out.json()) out.data["nodes"] = nodes;
}

int showPaths(Output& out, XmlNode* root, const QStringList& paths) {
    XmlTree tree(root);
    QJsonArray values;
    int missing = 0;
    for (const QString& path : paths) {
        const bool found = XmlPathFinder().find(root, path) != nullptr;
        const QString value = tree.getValue(path);
        values.append(QJsonObject{{"path", path}, {"found", found}, {"value", jsonValue(value)}});
        if (!found) {
            ++missing;
            std::fprintf(stderr, "mirel: xml: no element at '%s'\n", qPrintable(path));
        } else if (!out.json()) {
            out.text() << path << " = " << oneLine(value) << '\n';
        }
    }
    out.data["values"] = values;
    return missing == 0 ? 0 : 1;
}

int showXml(Output& out, const QString& file, const QStringList& paths) {
    out.data["file"] = file;
    XmlReader reader(file);
    if (reader.getErrorsOccurred()) return failed(QStringLiteral("xml"), reader.error, out);
    if (paths.isEmpty()) {
        showTree(out, reader.root);
        return 0;
    }
    return showPaths(out, reader.root, paths);
}

void configureXml(QCommandLineParser& parser) {
    parser.addPositionalArgument("FILE", "The XML file to read.");
    parser.addPositionalArgument("PATH", "Slash-separated element paths whose values to print; the "
                                         "first name is the root element's. Without any, the whole tree.",
                                 "[PATH...]");
}

int runXml(const QCommandLineParser& parser, Output& out) {
    QStringList args = parser.positionalArguments();
    if (args.isEmpty()) throw UsageError(QStringLiteral("give the XML FILE to read"));
    const QString file = args.takeFirst();
    return showXml(out, file, args);
}

void showDictionary(Output& out, ResourceDictionary& dictionary, bool loaded) {
    QString exported;
    dictionary.exportToString(exported);
    QJsonArray entries;
    for (auto it = dictionary.entries.cbegin(); it != dictionary.entries.cend(); ++it) {
        entries.append(QJsonObject{{"key", jsonValue(it.key())}, {"value", jsonValue(it.value())}});
    }
    out.data["loaded"] = loaded;
    out.data["entries"] = entries;
    out.data["text"] = exported;
    if (!out.json()) out.text() << exported;
}

void configureDict(QCommandLineParser& parser) {
    parser.addPositionalArgument("FILE", "A dictionary file (UTF-8), one \"<key> <value>\" per line.");
}

int runDict(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1) throw UsageError(QStringLiteral("give one dictionary FILE"));
    out.data["file"] = args.first();
    QFile file(args.first());
    if (!file.open(QIODevice::ReadOnly)) {
        return failed(QStringLiteral("dict"), QStringLiteral("could not open \"%1\": %2").arg(args.first(), file.errorString()),
                      out);
    }
    ResourceDictionary dictionary;
    const bool loaded = dictionary.loadFromString(QString::fromUtf8(file.readAll()));
    showDictionary(out, dictionary, loaded);
    return loaded ? 0 : 1;
}

const Register xmlCommand{Command{"xml", "Read an XML file: its element tree, or the values at paths.",
                                  configureXml, runXml, true}};
const Register dictCommand{Command{"dict", "Load a resource dictionary and write it back in key order.",
                                   configureDict, runDict, true}};

// Built-in samples for the tour, written where the reader can open them.
const char kSampleLayers[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- layer description, as a server might send it -->
<layers version="2">
  <layer id="1">
    <name>  Coastlines  </name>
    <visible>true</visible>
  </layer>
  <layer id="2">
    <name>Relief &amp; bathymetry</name>
    <legend><![CDATA[<b>depth</b> in metres]]></legend>
  </layer>
  <server>https://tiles.example.org</server>
</layers>
)";

const char kSampleDictionary[] = "<title> <Globe>\n"
                                 "<   zoom.in> <Zoom in>\n"
                                 "<city > <Z\xc3\xbcrich>\n"
                                 "<about> <Version %1>\n"
                                 "<title> <Globe viewer>\n";

QString writeSample(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile f(path);
    if (f.open(QIODevice::WriteOnly)) f.write(bytes);
    return path;
}

// The tour's values include a path that stops at the first <layer>, which has no legend:
// later elements of one name cannot be reached by path.
void tourXml(Output& out) {
    QTemporaryDir dir;
    const QString path = writeSample(dir, "layers.xml", kSampleLayers);
    XmlReader reader(path);
    if (!out.json()) out.text() << "tree:\n";
    showTree(out, reader.root);
    XmlTree tree(reader.root);
    QJsonArray values;
    if (!out.json()) out.text() << "values:\n";
    for (const QString& p : {QStringLiteral("layers/layer/name"), QStringLiteral("/layers//server/"),
                             QStringLiteral("layers/layer/legend")}) {
        const QString value = tree.getValue(p);
        values.append(QJsonObject{{"path", p}, {"value", jsonValue(value)}});
        if (!out.json()) out.text() << "  " << p << " = " << (value.isNull() ? QStringLiteral("(none)") : oneLine(value)) << '\n';
    }
    out.data["values"] = values;
    XmlReader broken(writeSample(dir, "broken.xml", "<layers>\n  <layer>\n"));
    out.data["truncatedFileError"] = broken.error;
    if (!out.json()) out.text() << "a truncated file: " << oneLine(broken.error) << '\n';
}

const Register tourXmlStep{TourStep{90, "XML: a layer file's tree and values by path", tourXml}};

const Register tourDict{TourStep{91, "Resource dictionary: lines loaded and written back in key order",
                                 [](Output& out) {
                                     ResourceDictionary dictionary;
                                     const bool loaded = dictionary.loadFromString(QString::fromUtf8(kSampleDictionary));
                                     showDictionary(out, dictionary, loaded);
                                 }}};

}  // namespace
}  // namespace mirel::tool
