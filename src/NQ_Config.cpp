#include "kvr/api/mng/NQ_Config.h"

#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/sys/NQ_System.h>

#include "detail/console.h"

#include <cstdlib>
#include <fstream>
#include <tuple>
#include <utility>

namespace kvr::api::mng {
namespace {

constexpr char kStopAgent[] = "/opt/components/mng/AG_Config/bin/stopAgent.sh ";

} // namespace

void NQ_Config::init(std::string newAppID, std::string newAgentID, std::string subDir,
                     std::string fileName, std::string newContent, bool newIsBase64) {
    isBase64 = newIsBase64;
    appID = std::move(newAppID);
    agentID = std::move(newAgentID);
    detail::out() << "AppID:" << appID << std::endl;
    detail::out() << "AgentID:" << agentID << std::endl;

    if (appID.empty())
        configFile = std::move(fileName);
    else if (!agentID.empty())
        configFile = appsRoot + "/" + appID + "/agents/" + agentID + "/" + subDir + "/" + fileName;
    else
        configFile = appsRoot + "/" + appID + "/" + subDir + "/" + fileName;
    // Deliberate: a name without any separator is its own directory.
    configDir = configFile.substr(0, configFile.find_last_of("/\\"));

    content = std::move(newContent);
    detail::out() << "Got Content:" << content << std::endl;
    detail::out() << "Creating directory:" << configDir << std::endl;
    if (!configDir.empty())
        std::ignore =
            std::system(("mkdir -p " + configDir).c_str()); // without it, the file is not written
}

bool NQ_Config::checkConfig() {
    const data::NQ_JSON document(content);
    if (document.getObj() != nullptr && !content.empty())
        return true;
    detail::out() << "Configuration NOT VALID" << std::endl;
    return false;
}

bool NQ_Config::applyConfig() {
    if (isBase64) {
        const std::string bytes = crypto::NQ_Base64::base64_decode(content);
        std::ofstream file(configFile, std::ios::out | std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    } else {
        file::FileWriter(configFile) << content;
    }
    return true;
}

bool NQ_Config::stopAgent() {
    if (!agentID.empty())
        sys::NQ_System::runScript(kStopAgent + agentID);
    return true;
}

void NQ_Config::notifyAppRestart() {
    if (!appID.empty() && agentID.empty())
        sys::NQ_System::runScript(appsRoot + "/" + appID + "/bin/run.sh restart");
}

} // namespace kvr::api::mng
