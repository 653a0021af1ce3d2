#ifndef TAVO_TESTS_PORT_H
#define TAVO_TESTS_PORT_H

namespace support {

/// Reserves a TCP port of 127.0.0.1 while the object exists, even while nobody listens on it. The
/// kernel does not assign it to a connection, and no other test takes it.
class Port {
public:
    /// Throws std::runtime_error when no port is free.
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
