#ifndef TAVO_BENCH_FLOOR_DISPATCHER_H
#define TAVO_BENCH_FLOOR_DISPATCHER_H

#include "Json.h"

#include <list>
#include <string>

namespace bench::floor {

/// A method of the dispatcher, with the interface of CallbackMethod.
class Method {
public:
    virtual ~Method();
    virtual bool call(const Json& request, Json& response) = 0;
    virtual std::string name() const = 0;
};

class Dispatcher {
public:
    virtual ~Dispatcher();
    /// Owns `method` from now on.
    void add(Method* method);
    bool process(const Json& request, Json& response);
    bool process(const std::string& text, Json& response);

private:
    std::list<Method*> methods_;
};

} // namespace bench::floor

#endif
