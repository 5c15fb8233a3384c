#include "FrameScript.h"

#include "ChangerServerConnectionLib/FrameAssembly.h"

#include <utility>

namespace {

constexpr char kEscape = '\x1B';
constexpr char kFrame = 'F';
constexpr char kChunkEnd = '|';

// Takes the next byte off the script; a letter behind an escape character is its event.
struct Token {
    char byte;
    bool isEvent;
};

Token TakeToken(std::string_view& script) {
    const bool isEvent = script.size() > 1 && script.front() == kEscape;
    const Token token = {script[isEvent ? 1 : 0], isEvent};
    script.remove_prefix(isEvent ? 2 : 1);
    return token;
}

bool IsFrame(const Token& token) {
    return token.isEvent && token.byte == kFrame;
}

std::string PayloadAt(std::string_view script) {
    std::string payload;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if (IsFrame(token))
            break;
        if (!token.isEvent)
            payload += token.byte;
    }
    return payload;
}

std::string HeaderOf(std::string_view payload) {
    const FrameHeader header = {kFrameSignature, 0, sizeof(FrameHeader),
                                static_cast<UInt32>(payload.size())};
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

} // namespace

std::vector<ScriptStep> ReadFrameScript(std::string_view script, Chunks chunks) {
    std::vector<ScriptStep> steps;
    std::string chunk;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if (IsFrame(token))
            chunk += HeaderOf(PayloadAt(script));
        else if (!token.isEvent)
            chunk += token.byte;
        else if (token.byte != kChunkEnd)
            steps.push_back({std::exchange(chunk, {}), token.byte});
        else if (chunks == Chunks::AsTold)
            steps.push_back({std::exchange(chunk, {}), '\0'});
    }
    steps.push_back({std::move(chunk), '\0'});
    return steps;
}

bool IsWellFramed(std::string_view script) {
    bool isFirst = true;
    while (!script.empty()) {
        const Token token = TakeToken(script);
        if ((isFirst && !IsFrame(token)) || (token.isEvent && token.byte == kLost))
            return false;
        isFirst = false;
    }
    return !isFirst;
}

std::string FirstPayload(std::string_view script) {
    TakeToken(script);
    return PayloadAt(script);
}
