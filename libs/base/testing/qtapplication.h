// One QApplication for a whole test program: widgets, timers on the event loop and message
// boxes need it, and Qt allows only one per process.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>

#include <functional>
#include <utility>

namespace mirel::testing {

// Makes the application on the main thread before the first test, then runs `started`;
// after the last test runs `ending`, then deletes the application. Register it once, from
// a namespace-scope initialiser:
//   const auto* const kApp = ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);
class QtApplicationEnvironment : public ::testing::Environment {
public:
    explicit QtApplicationEnvironment(std::function<void()> started = {},
                                      std::function<void()> ending = {})
        : mStarted(std::move(started)), mEnding(std::move(ending)) {}

    void SetUp() override {
        static int argc = 1;
        static char name[] = "mirel_test";
        static char* argv[] = {name, nullptr};
        mApp = new QApplication(argc, argv);
        if (mStarted) mStarted();
    }
    void TearDown() override {
        if (mEnding) mEnding();
        delete mApp;
        mApp = nullptr;
    }

private:
    std::function<void()> mStarted, mEnding;
    QApplication* mApp = nullptr;
};

}  // namespace mirel::testing
