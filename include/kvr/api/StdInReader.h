#ifndef KVR_API_STDINREADER_H
#define KVR_API_STDINREADER_H

#include <kvr/api/export.h>
#include <kvr/api/iot/Subject.h>

#include <string>

/// Announces every line that a supervising process writes to this program's standard input, and
/// echoes it to standard output.
///
/// Empty lines are neither announced nor echoed. While loop() runs, only observers may read
/// standard input, for instance further lines of a command. NQ_Stream describes the buffers, and
/// what child processes receive of standard input.
///
/// Threads: loop() runs on the caller's thread and calls the observers there, one line at a time.
class TAVO_API StdInReader : public kvr::api::iot::Subject<StdInReader> {
public:
    /// No observers; the last line is empty.
    StdInReader();
    ~StdInReader() override;

    /// Reads lines until `stop` is true. While nothing arrives, the call returns within about a
    /// second after the flag is set, and then writes an empty line to standard output. While lines
    /// arrive, it returns after the next one at the latest. At the end of standard input, the call
    /// loops at full speed until the flag is set.
    void loop(bool& stop);

    /// The same as lastLine.
    const std::string& getLastLine() const;

    /// The last line read, without its newline; empty at first and after a wait that `stop` or a
    /// failing poll(2) ended. For observers, in update(); only loop() changes it.
    std::string lastLine;
};

#endif
