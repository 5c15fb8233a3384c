#ifndef TESTS_FUZZ_FRAMESCRIPT_H
#define TESTS_FUZZ_FRAMESCRIPT_H

/*
 * What a server sends, as an input tells it. Bytes stand for themselves, but for an escape
 * character and the letter behind it:
 *
 *   ESC F  the header of a frame whose payload reaches to the next such header, or the end
 *   ESC |  the end of a chunk
 *   ESC L  the end of the connection
 *   ESC and any other letter: something that happens at that point, which the target knows
 */

#include <string>
#include <string_view>
#include <vector>

constexpr char kLost = 'L';

// Something that happens, and the chunk that arrives before it.
struct ScriptStep {
    std::string chunk; // may be empty: none arrives
    char event;        // '\0' for none
};

enum class Chunks { AsTold, Whole }; // Whole: as if there were no ESC |

std::vector<ScriptStep> ReadFrameScript(std::string_view script, Chunks chunks);

// Whether the script has nothing but whole, well-formed frames, so that chunks do not matter.
bool IsWellFramed(std::string_view script);

// The payload of the first frame of such a script.
std::string FirstPayload(std::string_view script);

#endif
