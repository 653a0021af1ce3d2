#ifndef TAVO_DDS_SERVICE_SDK_H
#define TAVO_DDS_SERVICE_SDK_H

// The part of the DDS RMI interface that kvr::api::mdw::NQ_DDS_RMI_RUNTIME needs, implemented over
// Eclipse Cyclone DDS. It carries the file name, namespace and names of the commercial product's
// interface, so that the same source builds against either. Nothing is offered here that the
// product does not offer: code that compiles against this header compiles against the other one.

#include <atomic>

/// Marks what applications may use of these types. The library hides everything else.
#define TAVO_RMI_API __attribute__((visibility("default")))

namespace org {
namespace opensplice {
namespace DDS_RMI {

/// Base of objects that shared_ptr counts and deletes.
///
/// The count starts at 0: the first shared_ptr makes it 1, and the object deletes itself when it
/// falls back to 0. So create it with `new`. An object that no shared_ptr ever held must be deleted
/// by its creator. Threads: the count may be changed by any thread at any time.
class TAVO_RMI_API RefCounted {
public:
    RefCounted();
    virtual ~RefCounted();
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

    /// Adds one owner.
    void inc_refcount();
    /// Removes one owner. The object is destroyed when no owner is left.
    void dec_refcount();

private:
    std::atomic<int> owners;
};

/// Owner of one share of an object that derives (virtually) from RefCounted.
///
/// Emptiness is `get() == nullptr`. Deliberate: there is no `operator bool`, `!`, `*` or `==`, as
/// the product has none. Threads: different pointers to one object may be used by different
/// threads; one pointer by one thread at a time.
template <class T>
class TAVO_RMI_API shared_ptr {
public:
    shared_ptr() : pointee(nullptr) {}

    /// Takes a share of `object`, which may be null. Deliberate: not explicit.
    shared_ptr(T* object) : pointee(object) { acquire(); }

    shared_ptr(const shared_ptr& other) : pointee(other.pointee) { acquire(); }

    virtual ~shared_ptr() { reset(); }

    shared_ptr& operator=(const shared_ptr& other) {
        reset(other.pointee);
        return *this;
    }

    /// Releases the share. The pointer is empty before the object can be destroyed, so the object's
    /// destructor may read the pointer.
    void reset() {
        T* const released = pointee;
        pointee = nullptr;
        if (released != nullptr)
            released->dec_refcount();
    }

    /// Takes a share of `object`, which may be null, before it releases the old one. So the object
    /// that is held may be passed again.
    void reset(T* object) {
        shared_ptr taken(object);
        T* const released = pointee;
        pointee = taken.pointee;
        taken.pointee = released;
    }

    /// Must not be used while empty.
    T* operator->() const { return pointee; }

    /// The object, still owned by the pointer; null while empty.
    T* get() const { return pointee; }

private:
    void acquire() {
        if (pointee != nullptr)
            pointee->inc_refcount();
    }

    T* pointee;
};

class CRuntime;
typedef shared_ptr<CRuntime> CRuntime_ref;

/// The process's presence in the DDS domain.
///
/// Threads: any thread may call every operation concurrently; a mutex of the runtime orders them.
class TAVO_RMI_API CRuntime : public virtual RefCounted {
public:
    /// The one runtime of the process, created by the first call; never empty. The library holds a
    /// share of it until the process ends, so it lives and keeps running without the application's
    /// pointers.
    ///
    /// Deliberate: the end of the process does not stop it, as a forked child would wait for
    /// threads that it does not have. Peers then notice the absence only when the participant's
    /// lease expires. So stop the runtime before the program ends.
    static shared_ptr<CRuntime> getDefaultRuntime();

    CRuntime();
    ~CRuntime() override;

    /// Joins the default DDS domain with a participant, which peers see under the name argv[0] (no
    /// name when that is missing). Cyclone DDS's own settings (CYCLONEDDS_URI), read at this
    /// moment, select the domain and the network.
    ///
    /// `argv` holds `argc` texts: a program name, then options of the form --option=value without
    /// blanks:
    ///   --RMIServiceDiscoveryTimeout=N     whole seconds, at least 1
    ///   --RMIClientThreadingModel=ST|MT
    /// Both are only checked, since there are no services here. Other options and texts are
    /// ignored. No pointer into `argv` is kept.
    ///
    /// Returns false, after one line on standard error, when one of the two has another value or
    /// the domain cannot be joined. Returns true without doing anything when the runtime runs
    /// already. While it joins, it replaces Cyclone DDS's log sink, and then restores the default
    /// one. An application that has set a sink must set it again.
    virtual bool start(int argc, const char* argv[]) = 0;

    /// Leaves the domain, which peers notice immediately. Returns false when the runtime does not
    /// run or Cyclone DDS refuses. The runtime may be started again.
    virtual bool stop() = 0;

    /// Whether it runs: started with success and not stopped since.
    virtual bool isUsable() = 0;
};

} // namespace DDS_RMI
} // namespace opensplice
} // namespace org

#endif
