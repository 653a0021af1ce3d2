#ifndef KVR_API_NQ_STREAM_H
#define KVR_API_NQ_STREAM_H

#include <kvr/api/export.h>

#include <istream>
#include <string>

/// Reads lines from a supervising process, and honours a stop flag while none comes.
///
/// Buffers: `stdin` and std::cin keep theirs. Lines that the program read ahead earlier are not
///          lost, and the lines of a burst are returned without a wait. Programs that this one
///          starts share descriptor 0: what was read ahead is not theirs. After
///          std::ios::sync_with_stdio(false), a buffered part of a line counts as a line: the call
///          then blocks until the rest of it comes.
/// Threads: one reader at a time. `stop` is a plain flag, written by another thread.
class TAVO_API NQ_Stream {
public:
    /// The next line that is not empty, without its newline (a carriage return stays).
    ///
    /// For std::cin the call waits in poll(2) for at most a second at a time, looks at `stop` after
    /// each wait, and returns an empty text when it is set, or when poll fails. A line that is
    /// buffered already ends the wait immediately, also after a look at `stop`. At the end of
    /// standard input it turns at full speed until `stop` is set. For other streams nothing is
    /// waited for and `stop` is never looked at: at the end of such a stream the call does not
    /// return. Deliberate exception: a failed stream counts as std::cin while std::cin has failed
    /// too.
    static std::string readOneLineStream(std::istream& in, bool& stop);

    /// The same with a flag that stays false: at the end of any input the call does not return.
    static std::string readOneLineStream(std::istream& in);

    /// Reads a line likewise, writes it to std::cout with a newline, flushed, and returns it. An
    /// empty text is written too.
    static std::string forwardAndCopyInput(std::istream& in, bool& stop);

    /// The same with a flag that stays false.
    static std::string forwardAndCopyInput(std::istream& in);
};

#endif
