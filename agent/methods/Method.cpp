#include "methods/Method.h"

#include "rpc/Rpc.h"

namespace agent {

bool Method::Call(const kvr::api::data::NQ_JSON& request, kvr::api::data::NQ_JSON& response) {
    try {
        Json result = run(Params(Params(request.getObj()).get("params")));
        response.addObjtoObj(response.getObj(), "result", result.release());
        return true;
    } catch (const RpcError& error) {
        response.addObjtoObj(response.getObj(), "error", errorMember(error).release());
        return false;
    }
}

} // namespace agent
