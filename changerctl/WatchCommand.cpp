// The command watch.

#include "changerctl/Changes.h"
#include "changerctl/Commands.h"
#include "changerctl/Interruption.h"
#include "changerctl/JsonOutput.h"
#include "changerctl/Notifications.h"
#include "changerctl/ProgressDisplay.h"
#include "changerctl/Summary.h"
#include "changerctl/Target.h"
#include "changerctl/Terminal.h"

#include <algorithm>
#include <ctime>
#include <functional>

namespace changerctl {
namespace {

// All changers, or the one that the arguments name.
class Selection {
public:
    Selection(const std::vector<Changer>& changers, const Options& options) {
        if (!options.arguments.empty())
            chosen_ = SelectChanger(changers, options.arguments).guid;
    }

    std::vector<Changer> Of(std::vector<Changer> changers) const {
        if (chosen_)
            std::erase_if(changers,
                          [&](const Changer& changer) { return changer.guid != chosen_; });
        return changers;
    }

private:
    std::optional<ChangerGuid> chosen_;
};

// Prints a line for each change.
class ChangePrinter {
public:
    ChangePrinter(std::vector<Changer> changers, const Options& options)
        : shown_(std::move(changers)), options_(options) {}

    void ShowChangers(std::vector<Changer> changers) {
        for (const Change& change : FindChanges(shown_, changers))
            Print(change);
        shown_ = std::move(changers);
    }
    void ShowConnection(bool isConnected) {
        if (isConnected != isConnected_)
            Print(ServerChange(isConnected));
        isConnected_ = isConnected;
    }

private:
    void Print(const Change& change) const {
        const std::string time = FormatUtc(std::time(nullptr));
        const std::string changer = change.changer ? FormatGuid(*change.changer) : "-";
        if (!options_.asJson) {
            Write(time + " " + changer + " " + change.text + "\n");
            return;
        }
        Json line{{"time", time}, {"changer", change.changer ? Json(changer) : Json(nullptr)}};
        line.update(change.details);
        Write(Dump(line, false) + "\n");
    }

    std::vector<Changer> shown_;
    const Options& options_;
    bool isConnected_ = true;
};

// The table of the changers, and a bar for each of their clients.
std::vector<TextLine> MakeScreen(const std::vector<Changer>& changers, bool isConnected) {
    std::vector<TextLine> lines = MakeChangerTable(changers, {}).Lines(true);
    for (const Changer& changer : changers)
        for (const ClientStatus& status : changer.statuses)
            if (changer.guid)
                lines.push_back(MakeStatusLine(*changer.guid, status));
    if (!isConnected)
        lines.push_back({{"The changer server is gone.", Style::Red}});
    return lines;
}

void WatchByLines(Notifications& notifications, const Selection& selection,
                  const Options& options) {
    ChangePrinter printer(selection.Of(notifications.Changers()), options);
    notifications.SetObserver(
        [&] { printer.ShowChangers(selection.Of(notifications.Changers())); });
    notifications.WaitUntil(
        [&] {
            printer.ShowConnection(notifications.IsConnected());
            return false;
        },
        std::nullopt);
}

void WatchOnTerminal(Notifications& notifications, const Selection& selection,
                     const Options& options) {
    RedrawnLines screen(UsesColours(options.colour));
    bool isChanged = true;
    bool wasConnected = true;
    notifications.SetObserver([&] { isChanged = true; });
    notifications.WaitUntil(
        [&] {
            const bool isConnected = notifications.IsConnected();
            if (isChanged || isConnected != wasConnected || screen.IsResized())
                screen.Draw(MakeScreen(selection.Of(notifications.Changers()), isConnected));
            isChanged = false;
            wasConnected = isConnected;
            return false;
        },
        std::nullopt);
}

} // namespace

void Watch(const Options& options) {
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    const Selection selection(notifications.Changers(), options);
    if (IsTerminal() && !options.asJson)
        WatchOnTerminal(notifications, selection, options);
    else
        WatchByLines(notifications, selection, options);
}

} // namespace changerctl
