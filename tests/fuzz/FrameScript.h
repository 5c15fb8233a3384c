#ifndef TESTS_FUZZ_FRAMESCRIPT_H
#define TESTS_FUZZ_FRAMESCRIPT_H

/*
 * What a server sends, as an input tells it. Bytes stand for themselves, but for an escape
 * character and the letter behind it:
 *
 *   ESC F  the header of a frame whose payload reaches to the next such header, or the end
 *   ESC f  the same, each byte of the header in a chunk of its own
 *   ESC |  the end of a chunk
 *   ESC L  the end of the connection
 *   ESC and any other letter: something that happens at that point, which the target knows
 */

#include <string>
#include <string_view>
#include <vector>

constexpr char kLost = 'L';

/* Something that happens, and the bytes that arrived just before. */
struct ScriptStep {
    std::string bytes; // may be empty: none arrived
    char event = '\0'; // none
};

/* The chunks of the stream. */
std::vector<ScriptStep> ReadChunks(std::string_view script);

/* Whether the script has nothing but whole, well-formed frames. */
bool IsWellFramed(std::string_view script);

/* The payloads of such a script instead of its chunks, but for empty ones. */
std::vector<ScriptStep> ReadPayloads(std::string_view script);

/* The payload of its first frame, which may be empty. */
std::string FirstPayload(std::string_view script);

#endif
