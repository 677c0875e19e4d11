// XML reader: building the tree of a 10 MB document, against expat (the same libexpatw)
// parsing the same file with handlers that do nothing, and pugixml's DOM parse of the same
// bytes as the field's reference point. Each run reads the file, as the reader does.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <malloc.h>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <pugixml.hpp>

#include "base/xml/xmlreader.h"

namespace {

// A layer list as a server sends it: indented records of short leaf values.
QByteArray makeDocument(std::size_t bytes) {
    QByteArray doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<layers>\n";
    for (int i = 0; static_cast<std::size_t>(doc.size()) < bytes; ++i) {
        const QByteArray n = QByteArray::number(i);
        doc += "  <layer id=\"" + n + "\">\n    <name>Layer " + n + "</name>\n    <url>https://tiles.example.org/" + n +
               "/{z}/{x}/{y}.png</url>\n    <visible>true</visible>\n    <opacity>0.75</opacity>\n  </layer>\n";
    }
    return doc + "</layers>\n";
}

struct Document {
    Document() {
        path = dir.filePath("layers.xml");
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly) || f.write(makeDocument(10u << 20)) < 0) std::abort();
    }
    QTemporaryDir dir;
    QString path;
};

const Document& document() {
    static const Document d;
    return d;
}

QByteArray readAll() {
    QFile f(document().path);
    if (!f.open(QIODevice::ReadOnly)) std::abort();
    return f.readAll();
}

// glibc leaves small freed blocks in its fast lists and merges them all at the next large
// request, which would be the next run's file buffer: a block of a page is such a request,
// so the merging of what a teardown freed happens here, outside the timing.
void consolidateHeap() {
    void* volatile block = malloc(4096);
    free(block);
}

void XMLCALL noStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL noEnd(void*, const XML_Char*) {}
void XMLCALL noText(void*, const XML_Char*, int) {}

void BM_ExpatEmptyHandlers(benchmark::State& state) {
    consolidateHeap();  // whatever ran before starts nothing here
    for (auto _ : state) {
        const QByteArray bytes = readAll();
        XML_Parser p = XML_ParserCreate(nullptr);
        XML_SetElementHandler(p, noStart, noEnd);
        XML_SetCharacterDataHandler(p, noText);
        if (XML_Parse(p, bytes.constData(), static_cast<int>(bytes.size()), 1) != XML_STATUS_OK) std::abort();
        XML_ParserFree(p);
    }
    state.SetBytesProcessed(state.iterations() * QFile(document().path).size());
}

std::size_t elementCount(const mirel::XmlNode* root) {
    std::size_t n = 0;
    for (const mirel::XmlNode* node = root; node != nullptr;) {
        ++n;
        if (node->firstChild != nullptr) {
            node = node->firstChild;
            continue;
        }
        while (node != nullptr && node->nextSibling == nullptr) node = node->parent;
        if (node != nullptr) node = node->nextSibling;
    }
    return n;
}

// The tree's build; its teardown runs outside the timing (BM_XmlReaderAndTeardown has both).
void BM_XmlReaderTree(benchmark::State& state) {
    consolidateHeap();  // whatever ran before starts nothing here
    std::size_t elements = 0;
    double bytesPerElement = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::size_t before = mallinfo2().uordblks;
        state.ResumeTiming();
        auto* reader = new mirel::XmlReader(document().path);
        state.PauseTiming();
        if (reader->root == nullptr) std::abort();
        elements = elementCount(reader->root);
        bytesPerElement = static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(elements);
        delete reader;
        consolidateHeap();
        state.ResumeTiming();
    }
    state.counters["elements"] = static_cast<double>(elements);
    state.counters["heapBytesPerElement"] = bytesPerElement;
    state.SetBytesProcessed(state.iterations() * QFile(document().path).size());
}

void BM_XmlReaderAndTeardown(benchmark::State& state) {
    consolidateHeap();  // whatever ran before starts nothing here
    for (auto _ : state) {
        mirel::XmlReader reader(document().path);
        benchmark::DoNotOptimize(reader.root);
    }
    state.SetBytesProcessed(state.iterations() * QFile(document().path).size());
}

void BM_PugixmlDom(benchmark::State& state) {
    consolidateHeap();  // whatever ran before starts nothing here
    double bytesPerElement = 0;
    for (auto _ : state) {
        const QByteArray bytes = readAll();
        state.PauseTiming();
        const std::size_t before = mallinfo2().uordblks;
        state.ResumeTiming();
        auto* doc = new pugi::xml_document;
        if (!doc->load_buffer(bytes.constData(), static_cast<std::size_t>(bytes.size()))) std::abort();
        state.PauseTiming();
        const std::size_t elements = doc->select_nodes("//*").size();
        bytesPerElement = static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(elements);
        delete doc;
        consolidateHeap();
        state.ResumeTiming();
    }
    state.counters["heapBytesPerElement"] = bytesPerElement;
    state.SetBytesProcessed(state.iterations() * QFile(document().path).size());
}

BENCHMARK(BM_ExpatEmptyHandlers)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XmlReaderTree)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XmlReaderAndTeardown)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PugixmlDom)->Unit(benchmark::kMillisecond);

}  // namespace

// The file's bytes always get a mapping of their own. Left to itself, glibc raises its mapping
// threshold after the first 10 MB block is freed and later takes such blocks from the heap,
// where they set off consolidations of whatever the previous run freed, in whichever
// benchmark comes next.
int main(int argc, char** argv) {
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
