#include <kvr/api/iot/Subject.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

class Source : public kvr::api::iot::Subject<Source> {
public:
    using Subject<Source>::notify;
};

/// Records its letter at every announcement.
class Recorder : public kvr::api::iot::Observer<Source> {
public:
    Recorder(char letter, std::string& log) : letter_(letter), log_(log) {}
    ~Recorder() override { log_ += '~'; }

    void update(Source* subject) override {
        from = subject;
        log_ += letter_;
        if (onUpdate)
            onUpdate();
    }

    Source* from = nullptr;
    std::function<void()> onUpdate;

private:
    char letter_;
    std::string& log_;
};

class Subject : public testing::Test {
protected:
    std::string log;
    Source source;
    Recorder a{'a', log};
    Recorder b{'b', log};
    Recorder c{'c', log};
};

TEST_F(Subject, WithoutObserversNotifiesNobody) {
    source.notify();
    EXPECT_EQ("", log);
}

TEST_F(Subject, CallsItsObserversInTheOrderOfAttachment) {
    source.attach(&b);
    source.attach(&a);
    source.attach(&c);
    source.notify();
    source.notify();
    EXPECT_EQ("bacbac", log);
}

TEST_F(Subject, PassesItselfToTheObserver) {
    source.attach(&a);
    source.notify();
    EXPECT_EQ(&source, a.from);
}

TEST_F(Subject, CallsAnObserverAsOftenAsItWasAttached) {
    source.attach(&a);
    source.attach(&b);
    source.attach(&a);
    source.notify();
    EXPECT_EQ("aba", log);
}

TEST_F(Subject, DetachesEveryOccurrence) {
    for (Recorder* recorder : {&a, &a, &b, &a})
        source.attach(recorder);
    source.detach(&a);
    source.notify();
    EXPECT_EQ("b", log);
}

TEST_F(Subject, DetachingAnUnknownObserverChangesNothing) {
    source.attach(&a);
    source.detach(&b);
    source.notify();
    EXPECT_EQ("a", log);
}

TEST_F(Subject, ADetachedObserverCanBeAttachedAgainAtTheEnd) {
    source.attach(&a);
    source.attach(&b);
    source.detach(&a);
    source.attach(&a);
    source.notify();
    EXPECT_EQ("ba", log);
}

TEST_F(Subject, AnObserverAttachedDuringANotificationIsCalledByIt) {
    source.attach(&a);
    a.onUpdate = [this] {
        if (log == "a")
            for (int i = 0; i < 100; ++i) // enough for the list to be reallocated
                source.attach(&b);
    };
    source.notify();
    EXPECT_EQ("a" + std::string(100, 'b'), log);
}

TEST_F(Subject, AnObserverDetachedBeforeItsTurnIsNotCalled) {
    source.attach(&a);
    source.attach(&b);
    source.attach(&c);
    a.onUpdate = [this] { source.detach(&c); };
    source.notify();
    EXPECT_EQ("ab", log);
}

TEST_F(Subject, AnObserverMayDetachItselfAndTheNextOneIsSkipped) {
    source.attach(&a);
    source.attach(&b);
    source.attach(&c);
    a.onUpdate = [this] { source.detach(&a); };
    source.notify();
    EXPECT_EQ("ac", log);
    source.notify();
    EXPECT_EQ("acbc", log);
}

TEST_F(Subject, AnExceptionEndsTheNotification) {
    source.attach(&a);
    source.attach(&b);
    a.onUpdate = [] { throw std::runtime_error("a"); };
    EXPECT_THROW(source.notify(), std::runtime_error);
    EXPECT_EQ("a", log);
}

TEST_F(Subject, DoesNotOwnItsObservers) {
    {
        Source shortLived;
        shortLived.attach(&a);
    }
    EXPECT_EQ("", log);
}

TEST_F(Subject, IsDestroyedThroughItsBase) {
    struct DestructionRecorder : Source {
        explicit DestructionRecorder(std::string& written) : log(written) {}
        ~DestructionRecorder() override { log += "left"; }
        std::string& log;
    };
    { const std::unique_ptr<kvr::api::iot::Subject<Source>> subject(new DestructionRecorder(log)); }
    EXPECT_EQ("left", log);
}

TEST_F(Subject, AnObserverIsDestroyedThroughItsBase) {
    { const std::unique_ptr<kvr::api::iot::Observer<Source>> observer(new Recorder('d', log)); }
    EXPECT_EQ("~", log);
}

} // namespace
