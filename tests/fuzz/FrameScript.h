#ifndef TESTS_FUZZ_FRAMESCRIPT_H
#define TESTS_FUZZ_FRAMESCRIPT_H

/*
 * A script of the bytes that a server sends. Bytes stand for themselves, except for an escape
 * character and the letter behind it:
 *
 *   ESC F  the header of a frame whose payload reaches to the next such header, or the end
 *   ESC f  the same, each byte of the header in a chunk of its own
 *   ESC |  the end of a chunk
 *   ESC L  the end of the connection
 *   ESC and any other letter: an event at that point, defined by the target
 */

#include <string>
#include <string_view>
#include <vector>

constexpr char kLost = 'L';

/* An event, and the bytes received before it. */
struct ScriptStep {
    std::string bytes; // may be empty
    char event = '\0'; // none
};

/* The chunks of the stream, with the event after each. */
std::vector<ScriptStep> ReadChunks(std::string_view script);

/* True if the script consists of complete, well-formed frames. */
bool IsWellFramed(std::string_view script);

/* The non-empty payloads of a well-framed script instead of its chunks. */
std::vector<ScriptStep> ReadPayloads(std::string_view script);

/* The payload of the first frame of a well-framed script; may be empty. */
std::string FirstPayload(std::string_view script);

#endif
