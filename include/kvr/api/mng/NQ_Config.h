#ifndef KVR_API_MNG_NQ_CONFIG_H
#define KVR_API_MNG_NQ_CONFIG_H

#include <kvr/api/export.h>

#include <string>

namespace kvr {
namespace api {
namespace mng {

/// Places one configuration file for an application or for one of its agents. Then restarts the
/// application, or stops the agent, so that the file takes effect.
///
/// Order:   init(), for JSON content checkConfig(), applyConfig(), then stopAgent() or
///          notifyAppRestart().
/// Output:  init() prints the identifiers, the content and the directory on standard output.
///          Scripts are logged in the system log (see NQ_System::runScript()).
/// Failure: checkConfig() returns false. The class reports no other failure, such as a file that
///          cannot be written, a full disk, or a script that fails. Read the file back where it
///          matters. stopAgent() and notifyAppRestart() throw what NQ_System::runScript() throws:
///          while the logger's file cannot be opened, the script is not run.
/// Threads: one at a time; commands run synchronously.
///
/// Trap:    nothing is checked or quoted for the shell, deliberately. Identifiers and names with
///          blanks, shell characters or ".." change the commands and the paths. Check text from
///          outside before you pass it.
class TAVO_API NQ_Config {
public:
    /// Every application has a directory named after its identifier under /opt/apps.
    NQ_Config() : isBase64(false), appsRoot("/opt/apps") {}

    /// Every application has a directory named after its identifier under `rootDirectory`.
    explicit NQ_Config(const std::string& rootDirectory)
        : isBase64(false), appsRoot(rootDirectory) {}

    /// Builds the file's path, and prints the identifiers, the content and the directory. Creates
    /// the directory with `mkdir -p`, which is found along PATH.
    ///
    /// The file is ROOT/appID/agents/agentID/subDir/fileName, for an empty `agentID`
    /// ROOT/appID/subDir/fileName, and for an empty `appID` just `fileName`, a full path. The
    /// directory is the part before the file's last "/" or "\". Deliberate: for a name without
    /// either, a directory of that very name is created, and the file cannot be written. `content`
    /// is base64 text when `isBase64` is set.
    void init(std::string appID, std::string agentID, std::string subDir, std::string fileName,
              std::string content, bool isBase64);

    /// Whether the content, as received, parses as JSON. Prints "Unable to parse json" and
    /// "Configuration NOT VALID" when it does not. Not for base64 content.
    bool checkConfig();

    /// Replaces the file's content with the content as given, or with the bytes that its base64
    /// text encodes. A reader can see the file half written. Always returns true.
    bool applyConfig();

    /// Runs /opt/components/mng/AG_Config/bin/stopAgent.sh with the agent's identifier when init()
    /// was given one, and waits for it. Always returns true.
    bool stopAgent();

    /// Runs ROOT/appID/bin/run.sh restart when init() was given an application and no agent, and
    /// waits for it.
    void notifyAppRestart();

    /// Directory of the file, after init().
    const std::string& getConfigDir() const { return configDir; }

    /// Full path of the file, after init().
    const std::string& getConfigFile() const { return configFile; }

private:
    // The order is part of the binary interface.
    std::string appID;
    std::string agentID;
    std::string configDir;
    std::string configFile;
    std::string content;
    bool isBase64;
    std::string appsRoot;
};

} // namespace mng
} // namespace api
} // namespace kvr

#endif
