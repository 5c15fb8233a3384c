#include "simulator/Faults.h"

#include "simulator/Frame.h"
#include "simulator/Words.h"

#include <algorithm>
#include <array>
#include <utility>

namespace simulator {

namespace {

// In the order of FaultKind.
constexpr std::array<std::string_view, 14> kFaultNames = {
    "error",       "silence",    "late",  "close", "signature", "header-size", "malformed",
    "wrong-types", "wrong-root", "split", "extra", "glued",     "huge",        "raw"};

Value AddPadding(const Value& dictionary, std::size_t size) {
    Value padded = dictionary.Copy();
    padded.Set("padding", std::string(size, 'x'));
    return padded;
}

std::string EncodeDamaged(const Value& dictionary, const Fault& fault) {
    const std::string xml = dictionary.ToXml();
    switch (fault.kind) {
    case FaultKind::Signature:
        return EncodeFrame(xml, {.signature = 0x67695368});
    case FaultKind::HeaderSize:
        return EncodeFrame(xml, {.headerSize = static_cast<std::uint16_t>(fault.size)});
    case FaultKind::Malformed:
        return EncodeFrame(xml.substr(0, xml.size() / 2));
    case FaultKind::WrongTypes:
        return EncodeFrame(dictionary.WithWrongTypes().ToXml());
    case FaultKind::WrongRoot:
        return EncodeFrame(Value::MakeArray().ToXml());
    case FaultKind::Extra:
        return EncodeFrame(xml) + 'x';
    case FaultKind::Glued:
        return EncodeFrame(xml) + EncodeFrame(xml);
    case FaultKind::Huge:
        return EncodeFrame(AddPadding(dictionary, fault.size).ToXml());
    case FaultKind::Raw:
        return fault.raw;
    default:
        return EncodeFrame(xml);
    }
}

} // namespace

std::string_view FaultName(FaultKind kind) {
    return kFaultNames[static_cast<std::size_t>(kind)];
}

FaultKind ParseFaultName(std::string_view name) {
    const auto found = std::ranges::find(kFaultNames, name);
    if (found == kFaultNames.end())
        throw CommandError("unknown fault: " + std::string(name));
    return static_cast<FaultKind>(found - kFaultNames.begin());
}

void Faults::Add(Rule rule) {
    const std::lock_guard guard(lock_);
    rules_.push_back(std::move(rule));
}

std::optional<Fault> Faults::Take(const std::vector<std::string_view>& targets) {
    const std::lock_guard guard(lock_);
    const auto found = std::ranges::find_if(rules_, [&](const Rule& rule) {
        return std::ranges::find(targets, rule.target) != targets.end();
    });
    if (found == rules_.end())
        return {};
    Fault fault = found->fault;
    if (found->count && --*found->count == 0)
        rules_.erase(found);
    return fault;
}

std::vector<Faults::Rule> Faults::List() const {
    const std::lock_guard guard(lock_);
    return {rules_.begin(), rules_.end()};
}

void Faults::Clear() {
    const std::lock_guard guard(lock_);
    rules_.clear();
}

std::vector<Piece> EncodeWithFault(const Value& dictionary, const std::optional<Fault>& fault) {
    if (!fault)
        return {{EncodeFrame(dictionary.ToXml())}};
    const bool isSplit = fault->kind == FaultKind::Split;
    return CutIntoPieces(EncodeDamaged(dictionary, *fault), isSplit ? fault->size : 0);
}

std::vector<Piece> CutIntoPieces(std::string_view bytes, std::size_t size) {
    if (size == 0)
        return {{std::string(bytes)}};
    std::vector<Piece> pieces;
    for (std::size_t at = 0; at < bytes.size(); at += size)
        pieces.push_back({std::string(bytes.substr(at, size)), true});
    return pieces;
}

} // namespace simulator
