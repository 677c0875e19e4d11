#include "base/testing/toolrunner.h"

#include "base/testing/files.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

#include <utility>

namespace mirel::testing {

namespace {

QString shown(const QJsonValue& v) {
    if (v.isUndefined()) return QStringLiteral("(absent)");
    // Wrapped in an array because a document cannot hold a bare value.
    const QByteArray text = QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

}  // namespace

::testing::AssertionResult hasFields(const QJsonObject& actual, const QJsonObject& expected) {
    QStringList wrong;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        const QJsonValue got = actual.value(it.key());
        if (got != it.value()) wrong << QStringLiteral("%1 is %2, not %3").arg(it.key(), shown(got), shown(it.value()));
    }
    if (wrong.isEmpty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << wrong.join("; ").toStdString();
}

QJsonObject ToolRun::json() const {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(out.toUtf8(), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << out.toStdString();
    EXPECT_TRUE(doc.isObject()) << out.toStdString();
    return doc.object();
}

ToolRunner::ToolRunner(QString program) : mProgram(std::move(program)) {
    EXPECT_TRUE(mHome.isValid()) << mHome.errorString().toStdString();
}

QString ToolRunner::file(const QString& name, const QByteArray& bytes) const {
    const QString path = QDir(mHome.path()).filePath(name);
    QDir().mkpath(QFileInfo(path).path());
    writeFile(path, bytes);
    return path;
}

ToolRun ToolRunner::operator()(const QStringList& args, const QByteArray& input) const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", mHome.path());
    env.insert("XDG_CONFIG_HOME", mHome.path() + "/config");
    env.insert("XDG_DATA_HOME", mHome.path() + "/data");
    env.insert("XDG_CACHE_HOME", mHome.path() + "/cache");
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(mProgram, args);
    p.write(input);
    p.closeWriteChannel();
    // A command that hangs is a fault of its own; two minutes leaves room for a busy machine.
    const bool ended = p.waitForFinished(120000);
    EXPECT_TRUE(ended) << "mirel " << args.join(' ').toStdString();
    if (!ended) {
        p.kill();
        p.waitForFinished();
    }
    return {ended && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

QJsonObject ToolRunner::json(const QStringList& args) const {
    const ToolRun r = (*this)(args);
    EXPECT_EQ(r.status, 0) << "mirel " << args.join(' ').toStdString() << ": " << r.err.toStdString();
    return r.json();
}

}  // namespace mirel::testing
