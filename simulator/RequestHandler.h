#ifndef SIMULATOR_REQUESTHANDLER_H
#define SIMULATOR_REQUESTHANDLER_H

/* What each command of the message socket does to the model, and what is replied. */

#include "simulator/Changer.h"
#include "simulator/Values.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <utility>

namespace simulator {

/* A reply's "error code": the code with the high word that marks it as one of the server's. */
std::int64_t MakeWireCode(std::int64_t code);

struct KnownChanger {
    std::shared_ptr<Changer> changer; // none: no such changer
    std::string mountPoint;
};

class RequestHandler {
public:
    explicit RequestHandler(std::function<KnownChanger(std::uint64_t guid)> find)
        : find_(std::move(find)) {}

    // The reply, a dictionary. Waits as long as the time-out of the changer allows.
    Value Handle(const Value& request, std::stop_token stop) const;

private:
    const std::function<KnownChanger(std::uint64_t guid)> find_;
};

} // namespace simulator

#endif
