#ifndef SIMULATOR_REQUESTHANDLER_H
#define SIMULATOR_REQUESTHANDLER_H

/* Executes the commands of the message socket and makes the replies. */

#include "simulator/Changer.h"
#include "simulator/Values.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <utility>

namespace simulator {

/* The "error code" of a reply: `code` with the high word of the server's facility. */
std::int64_t MakeWireCode(std::int64_t code);

struct KnownChanger {
    std::shared_ptr<Changer> changer; // null: no such changer
    std::string mountPoint;
};

class RequestHandler {
public:
    // `find` is called on the thread of each Handle() and must outlive the object.
    explicit RequestHandler(std::function<KnownChanger(std::uint64_t guid)> find)
        : find_(std::move(find)) {}

    // Returns the reply, a dictionary. Blocks up to the changer's time-out, or until `stop`. Any
    // thread may call.
    Value Handle(const Value& request, std::stop_token stop) const;

private:
    const std::function<KnownChanger(std::uint64_t guid)> find_;
};

} // namespace simulator

#endif
