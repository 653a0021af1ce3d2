#include "methods/ConfigPlace.h"

#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/mng/NQ_Config.h>

#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

namespace agent {
namespace {

constexpr char kApplications[] = "/opt/apps";

std::string pathName(const Params& params, const char* name) {
    const std::string value = params.name(name, "-.");
    if (value == "." || value.find("..") != std::string::npos)
        refuseParam("\"" + std::string(name) + "\" must not be . or contain ..");
    return value;
}

std::string pathNameOrNone(const Params& params, const char* name) {
    return params.has(name) ? pathName(params, name) : std::string();
}

bool isBase64(const std::string& text) {
    const std::size_t padding = text.size() - std::min(text.find('='), text.size());
    if (text.size() % 4 != 0 || padding > 2)
        return false;
    const std::string digits = text.substr(0, text.size() - padding);
    return text.compare(digits.size(), padding, "==", padding) == 0 &&
           digits.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                    "0123456789+/") == std::string::npos;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void checkContent(const std::string& content, bool encoded, const std::string& file) {
    if (encoded && !isBase64(content))
        refuseParam("\"content\" is not base64");
    if (!encoded && endsWith(file, ".json")) {
        const ParsedJson parsed = parseJson(content);
        if (!parsed.valid)
            refuseParam("\"content\" is not JSON: " + parsed.problem);
    }
}

bool isDirectory(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The library reports no failure, so the agent reads what was written.
void verify(const std::string& file, const std::string& expected) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream written;
    written << stream.rdbuf();
    if (!stream.is_open() || written.str() != expected)
        throw RpcError(ErrorCode::Failed, file + " could not be written");
}

} // namespace

ConfigPlace::ConfigPlace()
    : Method("config.place", "places a file for an application or one of its agents: application, "
                             "agent, directory, file, content, base64, restart") {}

Json ConfigPlace::run(const Params& params) {
    params.allowOnly({"application", "agent", "directory", "file", "content", "base64", "restart"});
    const std::string application = pathName(params, "application");
    const std::string agentName = pathNameOrNone(params, "agent");
    const std::string directory = pathNameOrNone(params, "directory");
    const std::string file = pathName(params, "file");
    const std::string content = params.text("content");
    const bool encoded = params.flagOr("base64", false);
    const bool restart = params.flagOr("restart", false);
    if (directory == "bin")
        refuseParam("\"directory\" must not be bin, which holds programs");
    checkContent(content, encoded, file);
    if (!isDirectory(std::string(kApplications) + "/" + application))
        throw RpcError(ErrorCode::Failed, "there is no application " + application);

    kvr::api::mng::NQ_Config config(kApplications);
    config.init(application, agentName, directory, file, content, encoded);
    config.applyConfig();
    const std::string expected =
        encoded ? kvr::api::crypto::NQ_Base64::base64_decode(content) : content;
    verify(config.getConfigFile(), expected);
    if (restart) {
        // stopAgent() acts for agents only, notifyAppRestart() for applications only.
        config.stopAgent();
        config.notifyAppRestart();
    }

    Json result = newObject();
    put(result, "file", newText(config.getConfigFile()));
    put(result, "bytes", newInt(static_cast<int>(expected.size())));
    put(result, "agent_stopped", newBool(restart && !agentName.empty()));
    put(result, "application_restarted", newBool(restart && agentName.empty()));
    return result;
}

} // namespace agent
