#include "FrameScript.h"

#include "ChangerServerConnectionLib/FrameAssembly.h"

#include <cstddef>
#include <utility>

namespace {

constexpr char kEscape = '\x1B';
constexpr char kFrame = 'F';
constexpr char kFrameInPieces = 'f';
constexpr char kChunkEnd = '|';

// A byte of the stream, or the letter behind an escape character.
struct Token {
    char byte;
    bool isEscaped;
};

Token TakeToken(std::string_view& script) {
    const bool isEscaped = script.size() > 1 && script.front() == kEscape;
    const Token token = {script[isEscaped ? 1 : 0], isEscaped};
    script.remove_prefix(isEscaped ? 2 : 1);
    return token;
}

bool IsFrame(const Token& token) {
    return token.isEscaped && (token.byte == kFrame || token.byte == kFrameInPieces);
}

bool IsEvent(const Token& token) {
    return token.isEscaped && !IsFrame(token) && token.byte != kChunkEnd;
}

// The payload of the frame whose header is before `script`.
std::string PayloadAt(std::string_view script) {
    std::string payload;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if (IsFrame(token))
            break;
        if (!token.isEscaped)
            payload += token.byte;
    }
    return payload;
}

std::string HeaderOf(std::string_view payload) {
    const FrameHeader header = {kFrameSignature, 0, sizeof(FrameHeader),
                                static_cast<UInt32>(payload.size())};
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

// Appends the header to the last step, or one step per byte if `inPieces`.
void AddHeader(std::vector<ScriptStep>& steps, const std::string& header, bool inPieces) {
    for (const char byte : header) {
        steps.back().bytes += byte;
        if (inPieces)
            steps.emplace_back();
    }
}

} // namespace

std::vector<ScriptStep> ReadChunks(std::string_view script) {
    std::vector<ScriptStep> steps(1);
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if (IsFrame(token)) {
            AddHeader(steps, HeaderOf(PayloadAt(script)), token.byte == kFrameInPieces);
        } else if (!token.isEscaped) {
            steps.back().bytes += token.byte;
        } else {
            steps.back().event = IsEvent(token) ? token.byte : '\0';
            steps.emplace_back();
        }
    }
    return steps;
}

bool IsWellFramed(std::string_view script) {
    bool isFirst = true;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if ((isFirst && !IsFrame(token)) || (token.isEscaped && token.byte == kLost))
            return false;
        isFirst = false;
    }
    return !isFirst;
}

std::vector<ScriptStep> ReadPayloads(std::string_view script) {
    std::vector<ScriptStep> steps;
    std::string payload;
    std::size_t missing = 0;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if (IsFrame(token)) {
            payload = PayloadAt(script);
            missing = payload.size();
        } else if (IsEvent(token)) {
            steps.push_back({{}, token.byte});
        } else if (!token.isEscaped && --missing == 0) {
            steps.push_back({std::exchange(payload, {})});
        }
    }
    return steps;
}

std::string FirstPayload(std::string_view script) {
    TakeToken(script);
    return PayloadAt(script);
}
