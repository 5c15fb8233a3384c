#include "changerctl/ProgressDisplay.h"

#include "changerctl/PrintableText.h"

#include <algorithm>

namespace changerctl {
namespace {

constexpr std::size_t kBarWidth = 30;

std::string Number(std::optional<std::size_t> number) {
    return number ? std::to_string(*number) : "?";
}

std::string TextOf(const TextLine& line) {
    std::string text;
    for (const Span& span : line)
        text += span.text;
    return text;
}

} // namespace

// A step may exceed the maximum: discs are inserted during a build.
TextLine MakeBar(std::optional<std::size_t> step, std::optional<std::size_t> steps,
                 const char* unit) {
    const std::size_t total = steps.value_or(0);
    const std::size_t done = std::min(step.value_or(0), total);
    const std::size_t filled = total > 0 ? kBarWidth * done / total : 0;
    return {{"["},
            {std::string(filled, '#'), Style::Green},
            {std::string(kBarWidth - filled, '.'), Style::Dim},
            {"] " + Number(step) + " of " + Number(steps) + " " + unit}};
}

TextLine MakeStatusLine(ChangerGuid changer, const ClientStatus& status) {
    TextLine line{{FormatGuid(changer) + "  "}};
    std::ranges::copy(MakeBar(status.currentStep, status.maximumStep, "discs"),
                      std::back_inserter(line));
    if (status.message)
        line.push_back({"  " + Printable(*status.message)});
    if (status.abortRequested.value_or(false))
        line.push_back({"  (abort requested)", Style::Yellow});
    return line;
}

ProgressDisplay::ProgressDisplay(ColourChoice colour) : withColours_(UsesColours(colour)) {
    if (IsTerminal())
        redrawn_.emplace(withColours_);
}

void ProgressDisplay::Show(const TextLine& line) {
    if (redrawn_) {
        redrawn_->Draw({line});
        return;
    }
    std::string text = TextOf(line);
    if (text == shown_)
        return;
    WriteLines({line}, withColours_);
    shown_ = std::move(text);
}

} // namespace changerctl
