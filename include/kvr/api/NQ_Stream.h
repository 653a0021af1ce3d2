#ifndef KVR_API_NQ_STREAM_H
#define KVR_API_NQ_STREAM_H

#include <kvr/api/export.h>

#include <istream>
#include <string>

/// Reads lines from a supervising process. A stop flag ends the wait while nothing arrives.
///
/// Buffers:  `stdin` and std::cin stay buffered. Lines that the program has read ahead are not
///           lost, and the lines of a burst are returned without a wait, also after
///           std::ios::sync_with_stdio(false).
/// Trap:     an incomplete line ends the wait too. The call then blocks until the rest of the line
///           arrives, and does not read `stop`.
/// Programs: programs that this one starts share descriptor 0. They do not receive what was read
///           ahead, and they can take lines that are meant for this program. Redirect their input.
/// Threads:  one reader at a time. `stop` is a plain flag that another thread may set
///           (docs/threads.md).
class TAVO_API NQ_Stream {
public:
    /// The next line that is not empty, without its newline (a carriage return stays).
    ///
    /// For std::cin the call waits in poll(2), at most a second at a time, and reads `stop` after
    /// each wait. It returns an empty text when the flag is set or poll(2) fails. A line that is
    /// already buffered ends the wait immediately, after the call has read the flag. At the end of
    /// standard input the call loops at full speed until the flag is set.
    ///
    /// For other streams the call neither waits nor reads `stop`; at the end of such a stream it
    /// does not return. Deliberate exception: a failed stream counts as std::cin while std::cin has
    /// failed too.
    static std::string readOneLineStream(std::istream& in, bool& stop);

    /// The same with a flag that stays false: at the end of any input the call does not return.
    static std::string readOneLineStream(std::istream& in);

    /// Reads a line in the same way, writes it to std::cout with a newline, flushes, and returns
    /// it. An empty text is written too.
    static std::string forwardAndCopyInput(std::istream& in, bool& stop);

    /// The same with a flag that stays false.
    static std::string forwardAndCopyInput(std::istream& in);
};

#endif
