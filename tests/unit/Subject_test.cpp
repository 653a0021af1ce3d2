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
class Scribe : public kvr::api::iot::Observer<Source> {
public:
    Scribe(char letter, std::string& log) : letter_(letter), log_(log) {}
    ~Scribe() override { log_ += '~'; }

    void update(Source* subject) override {
        from = subject;
        log_ += letter_;
        if (alsoDo)
            alsoDo();
    }

    Source* from = nullptr;
    std::function<void()> alsoDo;

private:
    char letter_;
    std::string& log_;
};

class Subject : public testing::Test {
protected:
    std::string log;
    Source source;
    Scribe a{'a', log};
    Scribe b{'b', log};
    Scribe c{'c', log};
};

TEST_F(Subject, WithoutObserversAnnouncesToNobody) {
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

TEST_F(Subject, HandsItselfToTheObserver) {
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
    for (Scribe* scribe : {&a, &a, &b, &a})
        source.attach(scribe);
    source.detach(&a);
    source.notify();
    EXPECT_EQ("b", log);
}

TEST_F(Subject, DetachingAStrangerChangesNothing) {
    source.attach(&a);
    source.detach(&b);
    source.notify();
    EXPECT_EQ("a", log);
}

TEST_F(Subject, ADetachedObserverMayComeBackAtTheEnd) {
    source.attach(&a);
    source.attach(&b);
    source.detach(&a);
    source.attach(&a);
    source.notify();
    EXPECT_EQ("ba", log);
}

TEST_F(Subject, AnObserverAttachedDuringARoundIsCalledInIt) {
    source.attach(&a);
    a.alsoDo = [this] {
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
    a.alsoDo = [this] { source.detach(&c); };
    source.notify();
    EXPECT_EQ("ab", log);
}

TEST_F(Subject, AnObserverMayDetachItselfAndItsSuccessorMissesTheRound) {
    source.attach(&a);
    source.attach(&b);
    source.attach(&c);
    a.alsoDo = [this] { source.detach(&a); };
    source.notify();
    EXPECT_EQ("ac", log);
    source.notify();
    EXPECT_EQ("acbc", log);
}

TEST_F(Subject, AnExceptionEndsTheRound) {
    source.attach(&a);
    source.attach(&b);
    a.alsoDo = [] { throw std::runtime_error("a"); };
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
    struct Leaving : Source {
        explicit Leaving(std::string& written) : farewell(written) {}
        ~Leaving() override { farewell += "left"; }
        std::string& farewell;
    };
    { const std::unique_ptr<kvr::api::iot::Subject<Source>> subject(new Leaving(log)); }
    EXPECT_EQ("left", log);
}

TEST_F(Subject, AnObserverIsDestroyedThroughItsBase) {
    { const std::unique_ptr<kvr::api::iot::Observer<Source>> observer(new Scribe('d', log)); }
    EXPECT_EQ("~", log);
}

} // namespace
