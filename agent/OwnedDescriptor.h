#ifndef TAVO_AGENT_OWNED_DESCRIPTOR_H
#define TAVO_AGENT_OWNED_DESCRIPTOR_H

#include <unistd.h>

namespace agent {

/// A file descriptor that is closed at the end of its scope; -1 for none.
class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int number) : number_(number) {}
    ~OwnedDescriptor() {
        if (number_ >= 0)
            close(number_);
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    bool isOpen() const { return number_ >= 0; }
    int get() const { return number_; }

private:
    int number_;
};

} // namespace agent

#endif
