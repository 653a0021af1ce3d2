#ifndef TAVO_TESTS_PORT_H
#define TAVO_TESTS_PORT_H

namespace support {

/// A TCP port of 127.0.0.1 that belongs to this object while it lives, also while nobody listens
/// on it: the kernel does not give it to a connection, and no other test takes it.
class Port {
public:
    /// Throws std::runtime_error when there is none.
    Port();
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    int number() const { return number_; }

private:
    int claim_ = -1;
    int number_ = 0;
};

} // namespace support

#endif
