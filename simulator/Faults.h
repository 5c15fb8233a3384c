#ifndef SIMULATOR_FAULTS_H
#define SIMULATOR_FAULTS_H

/* Misbehaviour on order: what goes wrong, on which occasion, how often. */

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

/* The word for it in the protocol, and back. The latter throws CommandError. */
std::string_view FaultName(FaultKind kind);
FaultKind ParseFaultName(std::string_view name);

struct Fault {
    FaultKind kind = FaultKind::Error;
    bool act = true;       // the request is carried out all the same
    std::int64_t code = 0; // of an error
    std::string text{};    // of an error; empty: none is sent
    std::chrono::milliseconds after{0};
    std::size_t size = 0; // of a header, a piece, a padding
    std::string raw{};
};

/* The orders that stand. Thread-safe. */
class Faults {
public:
    struct Rule {
        std::string target;
        Fault fault;
        std::optional<unsigned> count; // none: every time
    };

    void Add(Rule order);
    // Uses up one occasion of the first order for any of the targets.
    std::optional<Fault> Take(const std::vector<std::string_view>& targets);
    std::vector<Rule> List() const;
    void Clear();

private:
    mutable std::mutex lock_;
    std::list<Rule> rules_;
};

/* Bytes that go out in one send; alone: not before everything sent so far has been read. */
struct Piece {
    std::string bytes;
    bool alone = false;
};

/* The frame of a dictionary, damaged as the fault says, cut into what is to be sent. Faults that
   are none of the frame (Error, Silence, Late, Close) change nothing. */
std::vector<Piece> EncodeWithFault(const Value& dictionary, const std::optional<Fault>& fault);

/* Cuts bytes into pieces of so many that arrive one by one; 0: all in one, as it comes. */
std::vector<Piece> CutIntoPieces(std::string_view bytes, std::size_t size);

} // namespace simulator

#endif
