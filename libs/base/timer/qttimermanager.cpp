// QtTimerManager: QTimer peers, and methods delivered as posted events to a receiver that
// lives on the event-loop thread.
#include "base/timer/qttimermanager.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <QTimer>

#include <unordered_set>

#include "base/threads/semaphore.h"
#include "base/threads/spinlock.h"

namespace mirel {

namespace {

QEvent::Type methodEventType() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

// One handed-over method. Qt deletes the event after delivery, and also when its receiver
// is destroyed before delivery; either way a waiting caller is released here.
class MethodEvent : public QEvent {
public:
    MethodEvent(Timer::SyncMethod* method, Semaphore* done)
        : QEvent(methodEventType()), mMethod(method), mDone(done) {}
    ~MethodEvent() override {
        if (mDone != nullptr) mDone->post();
    }
    // The method may delete itself: it is not touched afterwards.
    void run() { mMethod->execute(); }

private:
    Timer::SyncMethod* mMethod;
    Semaphore* mDone;
};

class Receiver : public QObject {
public:
    bool event(QEvent* e) override {
        if (e->type() != methodEventType()) return QObject::event(e);
        static_cast<MethodEvent*>(e)->run();
        return true;
    }
};

}  // namespace

struct QtTimerManager::Private {
    Receiver receiver;
    SpinLock peersLock;  // guards `peers`: timers may be made or destroyed off the loop thread
    std::unordered_set<Timer::Peer*> peers;
};

namespace {

class QtPeer : public Timer::Peer {
public:
    QtPeer(Timer* t, QtTimerManager::Private* owner) : Peer(t), mOwner(owner) {
        // Coarse timers may fire up to 5% early; an interval asked for is an interval kept.
        mTimer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&mTimer, &QTimer::timeout, [this] {
            if (timer != nullptr) timer->fire();
        });
        CSMutex hold(mOwner->peersLock);
        mOwner->peers.insert(this);
    }
    ~QtPeer() override {
        CSMutex hold(mOwner->peersLock);
        mOwner->peers.erase(this);
    }
    void start(unsigned int interval, bool singleShot) override {
        mTimer.setSingleShot(singleShot);
        // QTimer takes an int; a longer interval is held at the longest it can wait.
        mTimer.start(interval > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int>(interval));
    }
    void stop() override { mTimer.stop(); }
    bool isActive() const override { return mTimer.isActive(); }

private:
    QtTimerManager::Private* mOwner;
    QTimer mTimer;
};

}  // namespace

QtTimerManager::QtTimerManager() : d(new Private) {}

QtTimerManager::~QtTimerManager() {
    // Nobody may find a manager that is half gone.
    sManager.store(nullptr, std::memory_order_release);
    std::unordered_set<Timer::Peer*> peers;
    {
        CSMutex hold(d->peersLock);
        peers.swap(d->peers);
    }
    for (Timer::Peer* peer : peers) delete peer;
    QCoreApplication::sendPostedEvents(&d->receiver, methodEventType());
    delete d;
}

Timer::Peer* QtTimerManager::createPeer(Timer* timer) { return new QtPeer(timer, d); }

void QtTimerManager::execute(Timer::SyncMethod& method, bool wait) {
    if (!wait) {
        executeAsync(method);
        return;
    }
    if (QThread::currentThread() == d->receiver.thread()) {
        method.execute();
        return;
    }
    Semaphore done(0);
    QCoreApplication::postEvent(&d->receiver, new MethodEvent(&method, &done));
    done.wait();
}

void QtTimerManager::executeAsync(Timer::SyncMethod& method) {
    QCoreApplication::postEvent(&d->receiver, new MethodEvent(&method, nullptr));
}

}  // namespace mirel
