#ifndef SIMULATOR_FAULTS_H
#define SIMULATOR_FAULTS_H

/* Injected faults: which fault, on which target, how often. */

#include "simulator/Values.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

enum class FaultKind {
    Error,
    Silence,
    Late,
    Close,
    Signature,
    HeaderSize,
    Malformed,
    WrongTypes,
    WrongRoot,
    Split,
    Extra,
    Glued,
    Huge,
    Raw,
};

/* Convert a fault to its name in the text protocol and back. Parsing throws CommandError if the
   name is unknown. */
std::string_view FaultName(FaultKind kind);
FaultKind ParseFaultName(std::string_view name);

struct Fault {
    FaultKind kind = FaultKind::Error;
    bool act = true;       // the request is executed nevertheless
    std::int64_t code = 0; // of an error
    std::string text{};    // of an error; not sent if empty
    std::chrono::milliseconds after{0};
    std::size_t size = 0; // of the header, a piece or the padding, in bytes
    std::string raw{};
};

/* The pending faults. Any thread may call. */
class Faults {
public:
    struct Rule {
        std::string target;
        Fault fault;
        std::optional<unsigned> count; // none: unlimited
    };

    // Appends a rule.
    void Add(Rule rule);
    // Returns the fault of the first rule for any of the targets, and decrements its count; none if
    // there is no such rule.
    std::optional<Fault> Take(const std::vector<std::string_view>& targets);
    // The rules that remain, with their remaining counts; Clear() drops them.
    std::vector<Rule> List() const;
    void Clear();

private:
    mutable std::mutex lock_;
    std::list<Rule> rules_;
};

/* Bytes for one send(). If `alone`, they are sent after the peer has read everything before. */
struct Piece {
    std::string bytes;
    bool alone = false;
};

/* Encodes the frame of a dictionary, with the damage of `fault`, as pieces to send. Error, Silence,
   Late and Close do not damage the frame. */
std::vector<Piece> EncodeWithFault(const Value& dictionary, const std::optional<Fault>& fault);

/* Cuts bytes into pieces of `size` bytes, each sent alone; one ordinary piece if `size` is 0. */
std::vector<Piece> CutIntoPieces(std::string_view bytes, std::size_t size);

} // namespace simulator

#endif
