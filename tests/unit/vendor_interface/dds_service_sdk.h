#ifndef TAVO_TESTS_VENDOR_INTERFACE_DDS_SERVICE_SDK_H
#define TAVO_TESTS_VENDOR_INTERFACE_DDS_SERVICE_SDK_H

// Declares only the part of the commercial product's interface that the runtime class may use. The
// class does not compile when it uses more. The test program supplies the default runtime.

namespace org {
namespace opensplice {
namespace DDS_RMI {

class RefCounted {
public:
    RefCounted() : count(0) {}
    virtual ~RefCounted() {}

    void inc_refcount() { ++count; }
    void dec_refcount() {
        if (--count == 0)
            delete this;
    }

private:
    RefCounted(const RefCounted&);
    RefCounted& operator=(const RefCounted&);

    int count;
};

template <class T>
class shared_ptr {
public:
    shared_ptr() : object(0) {}
    shared_ptr(T* pointer) : object(0) { reset(pointer); }
    shared_ptr(const shared_ptr& other) : object(0) { reset(other.object); }
    virtual ~shared_ptr() { reset(); }

    shared_ptr& operator=(const shared_ptr& other) {
        reset(other.object);
        return *this;
    }

    void reset() { reset(0); }
    void reset(T* pointer) {
        if (pointer != 0)
            pointer->inc_refcount();
        if (object != 0)
            object->dec_refcount();
        object = pointer;
    }

    T* operator->() const { return object; }
    T* get() const { return object; }

private:
    T* object;
};

class CRuntime : public virtual RefCounted {
public:
    static shared_ptr<CRuntime> getDefaultRuntime();

    virtual bool start(int argc, const char* argv[]) = 0;
    virtual bool stop() = 0;
    virtual bool isUsable() = 0;
};

typedef shared_ptr<CRuntime> CRuntime_ref;

} // namespace DDS_RMI
} // namespace opensplice
} // namespace org

#endif
