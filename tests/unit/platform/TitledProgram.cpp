/* Sets a process title as daemons do, then prints the name for the system log and each variable of
   the environment. */

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    constexpr char kTitle[] = "(some daemon)";
    for (int i = 0; i < argc; ++i)
        std::memset(argv[i], 0, std::strlen(argv[i]));
    std::memcpy(argv[0], kTitle, sizeof kTitle);

    std::printf("%s\n%s\n", program_invocation_name, program_invocation_short_name);
    for (char** variable = environ; *variable != nullptr; ++variable)
        std::printf("%s\n", *variable);
    return 0;
}
