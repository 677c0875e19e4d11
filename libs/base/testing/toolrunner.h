// Runs the mirel tool as a person would, for the tool's tests: a real process, its exit
// status, what it wrote on each stream, and a home of its own so that no run reads or
// writes the settings and folders of whoever runs the tests. A test file of the tool test
// program takes ToolTest as its fixture (`using XmlTool = ToolTest;`) and calls `mirel`.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mirel::testing {

// What one run of the tool left behind.
struct ToolRun {
    int status;   // the exit status; -1 when the tool crashed or did not finish in two minutes
    QString out;  // standard output, UTF-8
    QString err;  // standard error, UTF-8

    // Standard output as one JSON object; records a test failure when it is not one.
    QJsonObject json() const;
};

// The program at `program`, run with HOME at a temporary folder made for this object and
// the XDG config, data and cache folders below it. One per test, so that tests share no
// files. Not thread-safe.
class ToolRunner {
public:
    explicit ToolRunner(QString program);

    // The temporary home; removed with the object.
    QString home() const { return mHome.path(); }

    // Writes `bytes` to `name` below the home, making its folders; returns the full path.
    QString file(const QString& name, const QByteArray& bytes) const;

    // Runs the tool with `args`, `input` on its standard input; waits for it to end.
    ToolRun operator()(const QStringList& args, const QByteArray& input = {}) const;

    // Runs the tool with `args` (give --json among them) and returns its JSON; records a test
    // failure, with what the tool wrote on standard error, unless it exits 0.
    QJsonObject json(const QStringList& args) const;

private:
    QString mProgram;
    QTemporaryDir mHome;
};

// Whether `actual` holds every key of `expected` with an equal value (numbers compare as
// doubles); the failure names each key that differs. For checking many fields of one result.
::testing::AssertionResult hasFields(const QJsonObject& actual, const QJsonObject& expected);

#ifdef MIREL_TOOL_PATH
// Base of the tool's test fixtures: `mirel` runs the tool that the test program was built
// beside (its MIREL_TOOL_PATH), with a home made afresh for each test.
class ToolTest : public ::testing::Test {
protected:
    ToolRunner mirel{MIREL_TOOL_PATH};
};
#endif

}  // namespace mirel::testing
