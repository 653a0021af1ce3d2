#ifndef KVR_API_NQ_JSONRPC_H
#define KVR_API_NQ_JSONRPC_H

#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/export.h>

#include <list>
#include <string>

namespace kvr {
namespace api {

/// A method that an NQ_RPCHandler can call. Applications derive from it.
class TAVO_API CallbackMethod {
public:
    // The order of the virtual operations is part of the binary interface.

    /// The dispatcher deletes its methods through this class.
    virtual ~CallbackMethod();

    /// Carries out `request` (the whole request, not only its "params") and fills `response`, which
    /// holds whatever the dispatcher's caller put there. The result is what
    /// NQ_RPCHandler::Process() returns.
    virtual bool Call(const data::NQ_JSON& request, data::NQ_JSON& response) = 0;

    /// The method's name. Called again for every look-up.
    virtual std::string GetName() const = 0;

    /// One line of text, for a method that lists the methods. The dispatcher never calls it.
    virtual std::string GetDescription() const = 0;
};

/// Routes a JSON request to the handler named by its "method" member.
///
/// Ownership: a handler given to AddMethod() belongs to the dispatcher, which deletes it in
///            DeleteMethod() or on destruction.
/// Failure:   Process() returns false; only handlers change the response, and nothing is logged. A
///            "method" or "params" member that is null, and a null C string, raise
///            std::logic_error. Exceptions of handlers pass through.
/// Threads:   the table must not change while another thread calls Lookup() or Process().
///            Concurrent Process() calls are as safe as the handlers are.
///
/// The dispatcher does not use "id", "result" or "error": handlers and callers build the responses.
class TAVO_API NQ_RPCHandler {
public:
    // The order of the virtual operations is part of the binary interface.

    /// An empty table. Sends "NQ_RPCHandler loaded" to the system log (LOG_INFO).
    NQ_RPCHandler();

    /// Sends "NQ_RPCHandler unloaded" to the system log (LOG_INFO), then deletes the handlers in
    /// the order of their registration.
    virtual ~NQ_RPCHandler();

    NQ_RPCHandler(const NQ_RPCHandler&) = delete;
    NQ_RPCHandler& operator=(const NQ_RPCHandler&) = delete;

    /// Adds `m` at the end of the table. A name may occur more than once: the first registered is
    /// found. `m` must not be null. Throws std::bad_alloc, and deletes `m`, when there is no memory
    /// for the entry.
    void AddMethod(CallbackMethod* m);

    /// Removes and deletes the first handler called `name`; does nothing when there is none.
    /// Deliberate: "system.describe" is never removed.
    void DeleteMethod(const std::string& name);

    /// The first handler whose name is exactly `name`; null when there is none. The dispatcher
    /// keeps owning it.
    CallbackMethod* Lookup(const std::string& name) const;

    /// Calls the handler named by the request's "method" (as text: the number 7 finds a handler
    /// called "7") and returns its result. False when the request holds no value, names no method,
    /// or an unknown one.
    bool Process(const data::NQ_JSON& request, data::NQ_JSON& response);

    /// Parses `text` and processes it. False also for a text that does not parse (NQ_JSON prints
    /// "Unable to parse json") and for an array: batches are not supported.
    bool Process(const std::string& text, data::NQ_JSON& response);

    /// The same for a C string, up to its terminator.
    bool Process(const char* text, data::NQ_JSON& response);

    /// A derived dispatcher adds its methods here. The library never calls it.
    virtual void RegisterMethods() = 0;

private:
    std::list<CallbackMethod*> methods;
};

} // namespace api
} // namespace kvr

#endif
