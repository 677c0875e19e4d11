// The child process of the XML tests, for what a test process cannot see of itself: its
// peak memory while reading one file, and what other libraries print once the reader's
// expat is loaded.
//
//   xmlprobe memory FILE   prints "growthKiB <peak RSS growth while reading>" and "error <msg>"
//   xmlprobe gui FILE      reads FILE, starts a QGuiApplication and draws text; prints where
//                          the process's global XML_ParserCreate comes from
#include <dlfcn.h>

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <cstdio>
#include <cstring>

#include "base/xml/xmlreader.h"

namespace {

long peakKiB() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:")) return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

QString firstLine(const QString& s) { return s.section(QLatin1Char('\n'), 0, 0); }

int memory(const char* file) {
    const long before = peakKiB();
    mirel::XmlReader reader(QString::fromLocal8Bit(file));
    const long after = peakKiB();
    std::printf("growthKiB %ld\nerror %s\n", after - before, qPrintable(firstLine(reader.error)));
    return 0;
}

int gui(int argc, char** argv) {
    mirel::XmlReader reader(QString::fromLocal8Bit(argv[2]));
    QGuiApplication app(argc, argv);
    QImage image(200, 50, QImage::Format_ARGB32);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        painter.setFont(QFont(QStringLiteral("Sans"), 12));
        painter.drawText(10, 30, QStringLiteral("globe \u00e9"));
    }
    Dl_info info{};
    void* global = dlsym(RTLD_DEFAULT, "XML_ParserCreate");
    const bool found = global != nullptr && dladdr(global, &info) != 0 && info.dli_fname != nullptr;
    std::printf("read %s\nglobal XML_ParserCreate %s\n", reader.getErrorsOccurred() ? "failed" : "ok",
                found ? info.dli_fname : "none");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "memory") == 0) return memory(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], "gui") == 0) return gui(argc, argv);
    std::fprintf(stderr, "usage: xmlprobe memory|gui FILE\n");
    return 2;
}
