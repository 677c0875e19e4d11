// Files for tests that read them: a fresh temporary folder per test, and a one-call write
// whose failure fails the test instead of leaving a missing file to confuse the next check.
#pragma once

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

namespace mirel::testing {

// Writes `bytes` to `path`, replacing what was there.
inline void writeFile(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    EXPECT_EQ(f.write(bytes), bytes.size()) << path.toStdString();
}

// A fixture owning a temporary folder that lives as long as the test.
class TempFolderTest : public ::testing::Test {
protected:
    // Writes `bytes` into the folder as `name` and returns the file's path.
    QString write(const QByteArray& bytes, const QString& name = QStringLiteral("doc.xml")) {
        const QString path = mDir.filePath(name);
        writeFile(path, bytes);
        return path;
    }

    QTemporaryDir mDir;
};

}  // namespace mirel::testing
