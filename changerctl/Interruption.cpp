#include "changerctl/Interruption.h"

#include <cstddef>
#include <utility>

namespace changerctl {
namespace {

volatile std::sig_atomic_t g_signal = 0;

void StoreSignal(int number) {
    g_signal = number;
}

} // namespace

Interruption::Interruption() {
    struct sigaction action{};
    action.sa_handler = StoreSignal;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals.at(i), nullptr, &former_.at(i));
        if (former_.at(i).sa_handler != SIG_IGN)
            sigaction(kSignals.at(i), &action, nullptr);
    }
}

Interruption::~Interruption() {
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals.at(i), &former_.at(i), nullptr);
}

void Interruption::Check() {
    if (const int number = std::exchange(g_signal, 0); number != 0)
        throw Interrupted{number};
}

} // namespace changerctl
