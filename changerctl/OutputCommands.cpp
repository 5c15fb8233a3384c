// The commands that print what the server shows at present: list and show.

#include "changerctl/Commands.h"
#include "changerctl/JsonOutput.h"
#include "changerctl/Notifications.h"
#include "changerctl/Summary.h"
#include "changerctl/Target.h"
#include "changerctl/Terminal.h"

namespace changerctl {
namespace {

std::vector<Changer> ReadChangersOnce(const Options& options) {
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    return notifications.Changers();
}

void Print(const Table& table, const Options& options) {
    WriteLines(table.Lines(options.hasHeader), UsesColours(options.colour));
}

// The slots alone if columns are chosen: a program reads them then.
void PrintChanger(const Changer& changer, const Options& options) {
    Print(MakeSlotTable(changer, options.columns), options);
    if (!options.columns.empty() || !options.hasHeader)
        return;
    Write("\n");
    Print(MakePreferenceTable(changer), options);
    if (changer.statuses.empty())
        return;
    Write("\n");
    Print(MakeStatusTable(changer), options);
}

} // namespace

void List(const Options& options) {
    const std::vector<Changer> changers = ReadChangersOnce(options);
    if (!options.asJson) {
        Print(MakeChangerTable(changers, options.columns), options);
        return;
    }
    Json json = Json::array();
    for (const Changer& changer : changers)
        json.push_back(SummaryToJson(changer));
    Write(Dump(json, true) + "\n");
}

void Show(const Options& options) {
    const std::vector<Changer> changers = ReadChangersOnce(options);
    const Changer& changer = SelectChanger(changers, options.arguments);
    if (options.asJson)
        Write(Dump(ChangerToJson(changer), true) + "\n");
    else
        PrintChanger(changer, options);
}

} // namespace changerctl
