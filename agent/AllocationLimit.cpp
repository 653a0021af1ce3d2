// The socket server allocates as many bytes as a message's length prefix says, up to 4 GiB, before
// it reads any of them. After a message that arrived in pieces, such a prefix is any four bytes of
// text. On a gateway that would take the memory of other programs. So large allocations fail in
// this program: the server then prints the failure and drops the connection.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kLargestPiece = 8 * 1024 * 1024;

} // namespace

void* operator new(std::size_t size) {
    void* piece = size > kLargestPiece ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (piece == nullptr)
        throw std::bad_alloc();
    return piece;
}

void operator delete(void* piece) noexcept { std::free(piece); }

void operator delete(void* piece, std::size_t) noexcept { std::free(piece); }
