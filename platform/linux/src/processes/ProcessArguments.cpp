/*
 * A daemon may write a title over its arguments, even beyond the end of the first one. This module
 * copies what glibc and the program need from that memory before main(): the name that tags the
 * lines of the system log, and the environment, which lies directly behind the arguments.
 *
 * The copies are never freed. On a shortage of memory the originals stay in use.
 */

#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// argv[0]; if that is missing or empty, the path of the program's file.
const char* InvocationName(int argc, char** argv) noexcept {
    if (argc > 0 && argv[0][0] != '\0')
        return argv[0];
    // getauxval() returns addresses as numbers, too.
    return reinterpret_cast<const char*>(getauxval(AT_EXECFN));
}

void CopyInvocationName(int argc, char** argv) noexcept {
    const char* const name = InvocationName(argc, argv);
    char* const copy = name != nullptr ? strdup(name) : nullptr;
    if (copy == nullptr)
        return;
    char* const slash = std::strrchr(copy, '/');
    program_invocation_name = copy;
    program_invocation_short_name = slash != nullptr ? slash + 1 : copy;
}

void MoveEnvironment() noexcept {
    std::size_t count = 0;
    std::size_t bytes = 0;
    for (; environ[count] != nullptr; ++count)
        bytes += std::strlen(environ[count]) + 1;
    auto* const moved = static_cast<char**>(std::malloc((count + 1) * sizeof(char*) + bytes));
    if (moved == nullptr)
        return;
    auto* text = reinterpret_cast<char*>(moved + count + 1);
    for (std::size_t i = 0; i < count; ++i) {
        moved[i] = text;
        text = stpcpy(text, environ[i]) + 1;
    }
    moved[count] = nullptr;
    environ = moved;
}

} // namespace

extern "C" {

// A constructor: glibc passes main's arguments to it. No code refers to the function, so
// CMakeLists.txt makes the linker include it by name.
void PlatformKeepProcessArguments(int argc, char** argv);

__attribute__((constructor)) void PlatformKeepProcessArguments(int argc, char** argv) {
    CopyInvocationName(argc, argv);
    MoveEnvironment();
}
}
