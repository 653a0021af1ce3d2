#include "rpc/RequestHandler.h"

#include "Log.h"
#include "Signals.h"
#include "rpc/Params.h"
#include "rpc/Request.h"
#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <exception>
#include <stdexcept>

namespace agent {
namespace {

using kvr::api::data::NQ_JSON;

std::string named(const Request& request) {
    return "request " +
           (request.isNotification() ? "without id" : safeLine(oneLine(request.id()))) + " " +
           safeLine(request.method().empty() ? "-" : request.method());
}

/// "(54 bytes)", and for a sender other than the local socket "(54 bytes from cloud)".
std::string origin(const std::string& message, const std::string& sender) {
    return " (" + std::to_string(message.size()) + " bytes" +
           (sender.empty() ? std::string() : " from " + safeLine(sender)) + ")";
}

std::string described(json_object* error) {
    const Params members(error);
    return std::to_string(json_object_get_int(members.get("code"))) + " " +
           members.text("message") + ": " + safeLine(members.text("data"));
}

/// By the standard, an invalid request gets a response even without an id. A valid one without an
/// id is a notification and gets none.
bool wantsResponse(const Request& request, json_object* error) {
    return !request.isNotification() || json_object_get_int(Params(error).get("code")) ==
                                            static_cast<int>(ErrorCode::InvalidRequest);
}

} // namespace

Response RequestHandler::handle(const std::string& message, const std::string& sender,
                                const std::set<std::string>& refused) {
    const Turn turn(*this);
    Response response;
    const Json tree = respond(message, origin(message, sender), refused, response.wantedBySender);
    // A program can print any bytes, and these must not make the response invalid.
    if (tree != nullptr)
        response.text = repairedUtf8(oneLine(tree.get()));
    return response;
}

void RequestHandler::refuseRequests() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
}

bool RequestHandler::waitUntilIdle(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return idle_.wait_for(lock, limit, [this] { return !busy_; });
}

RequestHandler::Turn::Turn(RequestHandler& handler) : handler_(handler) {
    std::unique_lock<std::mutex> lock(handler_.mutex_);
    handler_.idle_.wait(lock, [this] { return !handler_.busy_; });
    if (handler_.ending_) {
        logError("request dropped: the agent is ending");
        throw std::runtime_error("the agent is ending");
    }
    handler_.busy_ = true;
}

RequestHandler::Turn::~Turn() {
    const std::lock_guard<std::mutex> lock(handler_.mutex_);
    handler_.busy_ = false;
    handler_.idle_.notify_all();
}

/// The response; null for a notification.
Json RequestHandler::respond(const std::string& message, const std::string& from,
                             const std::set<std::string>& refused, bool& wantedBySender) {
    try {
        const Request request(message);
        wantedBySender = request.wantsAnswer();
        logInfo(named(request) + from);
        Json response = dispatch(request, refused);
        json_object* error = Params(response.get()).get("error");
        if (error == nullptr)
            logInfo(named(request) + ": done");
        else
            logError(named(request) + ": " + described(error));
        return wantsResponse(request, error) ? std::move(response) : nullptr;
    } catch (const RpcError& refusal) {
        logInfo("message" + from);
        Json response = newResponse(nullptr);
        put(response, "error", errorMember(refusal));
        logError("message refused: " + described(Params(response.get()).get("error")));
        return response;
    }
}

Json RequestHandler::dispatch(const Request& request, const std::set<std::string>& refused) {
    Json response = newResponse(request.id());
    try {
        request.check();
        if (dispatcher_.Lookup(request.method()) == nullptr)
            throw RpcError(ErrorCode::MethodNotFound,
                           "there is no method \"" + safeLine(request.method(), 60) + "\"");
        if (refused.count(request.method()) != 0)
            throw RpcError(ErrorCode::Failed, request.method() + " is not allowed for this sender");
        NQ_JSON shared(response.get());
        const UnblockedSignals unblocked;
        dispatcher_.Process(NQ_JSON(request.tree()), shared);
    } catch (const RpcError& error) {
        put(response, "error", errorMember(error));
    } catch (const std::exception& error) {
        put(response, "error", errorMember(RpcError(ErrorCode::InternalError, error.what())));
    }
    return response;
}

} // namespace agent
