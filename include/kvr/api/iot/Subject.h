#ifndef KVR_API_IOT_SUBJECT_H
#define KVR_API_IOT_SUBJECT_H

#include <kvr/api/export.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kvr {
namespace api {
namespace iot {

/// Receives the announcements of a Subject<T>.
template <class T>
class TAVO_API Observer {
public:
    // The order of the virtual operations is part of the binary interface.

    /// Does not detach the observer. Detach it before you destroy it.
    virtual ~Observer() {}

    /// Called by the subject on the thread that runs it, one announcement at a time. Read what is
    /// new from `subject`.
    virtual void update(T* subject) = 0;
};

/// Announces events to the attached observers. T is the class derived from it.
///
/// Ownership: observers are not owned. Each must be detached before it is destroyed, or outlive the
///            subject.
/// Threads:   attach and detach on the subject's own thread, also in update(), or while the subject
///            is idle. No locks.
template <class T>
class TAVO_API Subject {
public:
    /// Forgets the observers and deletes none.
    virtual ~Subject() {}

    /// Adds `observer` after the others. An observer that is attached twice is called twice.
    void attach(Observer<T>* observer) { observers.push_back(observer); }

    /// Removes every occurrence of `observer`.
    void detach(Observer<T>* observer) {
        observers.erase(std::remove(observers.begin(), observers.end(), observer), observers.end());
    }

protected:
    /// Calls update() of every observer in the order of attachment. An exception of an observer
    /// ends the round.
    void notify() {
        // By index: an observer may attach or detach others. One detached in a round makes its
        // successor miss that round.
        for (std::size_t i = 0; i < observers.size(); ++i)
            observers[i]->update(static_cast<T*>(this));
    }

private:
    std::vector<Observer<T>*> observers;
};

} // namespace iot
} // namespace api
} // namespace kvr

#endif
