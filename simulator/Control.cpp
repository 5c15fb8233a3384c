#include "simulator/Control.h"

#include "simulator/Frame.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace simulator {

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CommandError("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

ChangerTiming ReadTiming(const Arguments& arguments, ChangerTiming timing) {
    timing.drives.moving = arguments.TimeOr("moving", timing.drives.moving);
    timing.drives.spinUp = arguments.TimeOr("spin-up", timing.drives.spinUp);
    timing.appear = arguments.TimeOr("appear", timing.appear);
    timing.timeout = arguments.TimeOr("timeout", timing.timeout);
    return timing;
}

FileSystemOptions ReadFileSystemOptions(const Arguments& arguments) {
    FileSystemOptions options;
    options.mountPoint = arguments.TextOr("mount", "");
    const std::string info = arguments.TextOr("info", "xml");
    if (info != "xml" && info != "binary")
        throw CommandError("info must be xml or binary");
    options.binaryInfo = info == "binary";
    options.kernelCache = arguments.SwitchOr("kernel-cache", false);
    return options;
}

// Makes the content of the partitions of one disc.
class ContentReader {
public:
    explicit ContentReader(const Arguments& arguments) : arguments_(arguments) {
        synthetic_.seed = arguments.NumberOr("seed", synthetic_.seed);
        synthetic_.directories = arguments.NumberOr("directories", synthetic_.directories);
        synthetic_.files = arguments.NumberOr("files", synthetic_.files);
        synthetic_.depth = arguments.NumberOr("depth", synthetic_.depth);
        if (arguments.Has("folder"))
            folder_ = ReadFolderTree(arguments.RequiredText("folder"));
    }

    std::shared_ptr<const DiscTree> Read(unsigned partition) {
        const std::string key = "folder" + std::to_string(partition);
        if (arguments_.Has(key))
            return ReadFolderTree(arguments_.RequiredText(key));
        if (folder_)
            return folder_;
        SyntheticTreeOptions options = synthetic_;
        options.seed += partition - 1;
        return MakeSyntheticTree(options);
    }

private:
    const Arguments& arguments_;
    SyntheticTreeOptions synthetic_;
    std::shared_ptr<const DiscTree> folder_;
};

NewDisc ReadDisc(const Arguments& arguments) {
    NewDisc disc;
    disc.slot = arguments.RequiredNumber<SlotIndex>("slot");
    disc.name = arguments.TextOr("name", "disc-" + std::to_string(disc.slot));
    if (disc.name.empty() || disc.name.find('/') != disc.name.npos)
        throw CommandError("invalid name for a media root: " + disc.name);
    disc.kind = arguments.NumberOr<std::uint16_t>("kind", 1);
    disc.identified = arguments.SwitchOr("identified", false);
    const auto unformatted = arguments.NumberSet("unformatted");
    ContentReader content(arguments);
    const unsigned partitions = arguments.NumberOr<std::uint8_t>("partitions", 1);
    for (unsigned partition = 1; partition <= partitions; ++partition)
        disc.partitions.push_back({content.Read(partition), !unformatted.contains(partition)});
    return disc;
}

Fault ReadFault(const Arguments& arguments) {
    Fault fault;
    fault.kind = ParseFaultName(arguments.RequiredText("do"));
    const bool replaces = fault.kind == FaultKind::Error || fault.kind == FaultKind::Silence ||
                          fault.kind == FaultKind::Close;
    fault.act = arguments.SwitchOr("act", !replaces);
    switch (fault.kind) {
    case FaultKind::Error:
        fault.code = arguments.RequiredNumber<std::int64_t>("code");
        fault.code = fault.code < 0x10000 ? MakeWireCode(fault.code) : fault.code;
        fault.text = arguments.TextOr("text", "");
        break;
    case FaultKind::Late:
        fault.after = arguments.TimeOr("after", {});
        break;
    case FaultKind::HeaderSize:
        fault.size = arguments.RequiredNumber<std::uint16_t>("size");
        break;
    case FaultKind::Split:
    case FaultKind::Huge:
        fault.size = arguments.RequiredNumber<std::uint32_t>("size");
        break;
    case FaultKind::Raw:
        fault.raw = arguments.Has("file") ? ReadFile(arguments.RequiredText("file"))
                                          : ParseHexBytes(arguments.RequiredText("hex"));
        break;
    default:
        break;
    }
    return fault;
}

void CheckFaultTarget(const std::string& target, FaultKind kind) {
    const bool isOfReplies = kind == FaultKind::Error || kind == FaultKind::Late;
    if (target == "connection" && kind != FaultKind::Close)
        throw CommandError("on=connection supports do=close only");
    if (target == "notification" && (isOfReplies || kind == FaultKind::Close))
        throw CommandError("on=notification does not support do=" + std::string(FaultName(kind)));
}

// A move that has begun (UnderWay) is no refusal.
void ThrowIfRefused(const Outcome& outcome) {
    if (outcome.code != ReplyCode::Success && outcome.code != ReplyCode::UnderWay)
        throw CommandError(outcome.text);
}

} // namespace

// ---- The table of commands ----

const Control::Command Control::kCommands[] = {
    {"add-changer",
     "changer=GUID slots=N drives=N [mount=DIRECTORY] [moving=MS] [spin-up=MS] [appear=MS] "
     "[timeout=MS] [ready=yes] [info=xml|binary] [kernel-cache=no]",
     &Control::AddChanger},
    {"remove-changer", "changer=GUID", &Control::RemoveChanger},
    {"mount", "changer=GUID [mount=DIRECTORY]", &Control::Mount},
    {"unmount", "changer=GUID", &Control::Unmount},
    {"ready", "changer=GUID value=yes|no", &Control::SetReady},
    {"timing", "changer=GUID [moving=MS] [spin-up=MS] [appear=MS] [timeout=MS]",
     &Control::SetTiming},
    {"preferences",
     "changer=GUID [identify-on-insert=yes|no|absent] [build-on-identify=...] "
     "[build-on-schedule=...] [hours=N|absent] [minutes=N|absent]",
     &Control::SetPreferences},
    {"root-preferences", "[identify-on-insert=yes|no|absent]", &Control::SetRootPreferences},
    {"put",
     "changer=GUID slot=N [folder=DIRECTORY [folder2=...] | seed=N directories=N files=N depth=N] "
     "[partitions=1] [unformatted=N,N...] [identified=no] [name=LABEL] [kind=1]",
     &Control::Put},
    {"take", "changer=GUID slot=N", &Control::Take},
    {"identify", "changer=GUID [slot=N] [value=yes]", &Control::Identify},
    {"load", "changer=GUID slot=N", &Control::Load},
    {"eject", "changer=GUID slot=N", &Control::Eject},
    {"forget", "changer=GUID slot=N", &Control::Forget},
    {"abort", "changer=GUID client=NAME [create=no]", &Control::Abort},
    {"start", "", &Control::Start},
    {"stop", "", &Control::Stop},
    {"push", "[together=no] [times=1]", &Control::Push},
    {"pause", "", &Control::Pause},
    {"resume", "[once=no]", &Control::Resume},
    {"pulse", "every=MS", &Control::SetPulse},
    {"copy-notifications", "file=FILE", &Control::CopyNotifications},
    {"serial", "value=yes|no", &Control::SetSerial},
    {"notify", "hex=BYTES | file=FILE | payload=FILE [split=N]", &Control::Notify},
    {"fault",
     "on=COMMAND|request|connection|notification do=ACTION [count=1|all] [act=yes|no] [code=N] "
     "[text=T] [after=MS] [size=N] [hex=BYTES] [file=FILE]",
     &Control::AddFault},
    {"faults", "", &Control::ListFaults},
    {"clear-faults", "", &Control::ClearFaults},
    {"show", "[changer=GUID] [slot=N] [directories=yes]", &Control::Show},
    {"events", "kinds=all|none|KIND,KIND...", &Control::ChooseEvents},
    {"help", "", &Control::Help},
    {"quit", "", nullptr},
};

bool Control::Execute(std::string_view line) {
    try {
        const CommandLine parsed = ParseCommandLine(line);
        if (parsed.word.empty())
            return true;
        const auto command = std::ranges::find(kCommands, parsed.word, &Command::name);
        if (command == std::end(kCommands))
            throw CommandError("unknown command: " + parsed.word + "; try help");
        const Arguments arguments(parsed.values, command->usage);
        if (!command->run)
            return false;
        (this->*command->run)(arguments);
        simulator_.Publisher().Flush();
        simulator_.Events().Print("ok");
    } catch (const std::exception& error) {
        simulator_.Events().Print("error " + Quote(error.what()));
    }
    return true;
}

std::shared_ptr<Changer> Control::FindChanger(const Arguments& arguments) {
    return simulator_.FindChanger(arguments.RequiredGuid());
}

// ---- Changers ----

void Control::AddChanger(const Arguments& arguments) {
    ChangerConfig config;
    config.guid = arguments.RequiredGuid();
    config.slots = arguments.RequiredNumber<std::uint16_t>("slots");
    config.drives = arguments.RequiredNumber<std::uint16_t>("drives");
    config.ready = arguments.SwitchOr("ready", true);
    simulator_.AddChanger(config, ReadTiming(arguments, {}), ReadFileSystemOptions(arguments));
}

void Control::RemoveChanger(const Arguments& arguments) {
    simulator_.RemoveChanger(arguments.RequiredGuid());
}

void Control::Mount(const Arguments& arguments) {
    simulator_.MountFileSystem(arguments.RequiredGuid(), arguments.TextOr("mount", ""));
}

void Control::Unmount(const Arguments& arguments) {
    simulator_.UnmountFileSystem(arguments.RequiredGuid());
}

void Control::SetReady(const Arguments& arguments) {
    FindChanger(arguments)->SetReady(arguments.RequiredSwitch("value"));
}

void Control::SetTiming(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    changer->SetTiming(ReadTiming(arguments, changer->CurrentTiming()));
}

void Control::SetPreferences(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    Preferences preferences = changer->CurrentPreferences();
    arguments.Update("identify-on-insert", preferences.identifyOnInsert);
    arguments.Update("build-on-identify", preferences.buildOnIdentify);
    arguments.Update("build-on-schedule", preferences.buildOnSchedule);
    arguments.Update("hours", preferences.hours);
    arguments.Update("minutes", preferences.minutes);
    changer->SetPreferences(preferences);
}

void Control::SetRootPreferences(const Arguments& arguments) {
    std::optional<bool> identify;
    arguments.Update("identify-on-insert", identify);
    simulator_.SetIdentifyOnInsert(identify);
}

// ---- Discs and users ----

void Control::Put(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    NewDisc disc = ReadDisc(arguments);
    changer->Put(std::move(disc));
}

void Control::Take(const Arguments& arguments) {
    FindChanger(arguments)->Take(arguments.RequiredNumber<SlotIndex>("slot"));
}

void Control::Identify(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    const bool isRequested = arguments.SwitchOr("value", true);
    if (!arguments.Has("slot")) {
        changer->RequestChangerIdentification(isRequested);
        return;
    }
    const auto slot = arguments.RequiredNumber<SlotIndex>("slot");
    ThrowIfRefused(changer->RequestDiscIdentification(slot, isRequested));
}

void Control::Load(const Arguments& arguments) {
    MountRequest request;
    request.slot = arguments.RequiredNumber<SlotIndex>("slot");
    ThrowIfRefused(FindChanger(arguments)->Mount(request));
}

void Control::Eject(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    const auto slot = arguments.RequiredNumber<SlotIndex>("slot");
    ThrowIfRefused(changer->Eject({slot, {}, true}));
}

void Control::Forget(const Arguments& arguments) {
    FindChanger(arguments)->Forget(arguments.RequiredNumber<SlotIndex>("slot"));
}

void Control::Abort(const Arguments& arguments) {
    const auto changer = FindChanger(arguments);
    changer->RequestAbort(arguments.RequiredText("client"), arguments.SwitchOr("create", false));
}

// ---- Sockets ----

void Control::Start(const Arguments&) {
    simulator_.Start();
}

void Control::Stop(const Arguments&) {
    simulator_.Stop();
}

void Control::Push(const Arguments& arguments) {
    Publisher& publisher = simulator_.Publisher();
    const bool together = arguments.SwitchOr("together", false);
    for (auto left = arguments.NumberOr<unsigned>("times", 1); left > 0; --left) {
        if (together)
            publisher.MarkTogether();
        else
            publisher.Mark(kAllNotifications);
        publisher.Flush(); // without it, the next iteration would send both at once
    }
}

void Control::Pause(const Arguments&) {
    simulator_.Publisher().Pause();
}

void Control::Resume(const Arguments& arguments) {
    if (arguments.SwitchOr("once", false))
        simulator_.Publisher().ResumeOnce();
    else
        simulator_.Publisher().Resume();
}

void Control::SetPulse(const Arguments& arguments) {
    simulator_.Publisher().SetPulse(milliseconds(arguments.RequiredNumber<std::int32_t>("every")));
}

void Control::CopyNotifications(const Arguments& arguments) {
    simulator_.CopyNotifications(arguments.RequiredText("file"));
}

void Control::SetSerial(const Arguments& arguments) {
    simulator_.SetSerial(arguments.RequiredSwitch("value"));
}

void Control::Notify(const Arguments& arguments) {
    std::string bytes;
    if (arguments.Has("payload"))
        bytes = EncodeFrame(ReadFile(arguments.RequiredText("payload")));
    else if (arguments.Has("file"))
        bytes = ReadFile(arguments.RequiredText("file"));
    else
        bytes = ParseHexBytes(arguments.RequiredText("hex"));
    simulator_.SendRaw(CutIntoPieces(bytes, arguments.NumberOr<std::size_t>("split", 0)));
}

// ---- Faults ----

void Control::AddFault(const Arguments& arguments) {
    Faults::Rule rule;
    rule.target = arguments.RequiredText("on");
    rule.fault = ReadFault(arguments);
    if (arguments.TextOr("count", "1") != "all")
        rule.count = arguments.NumberOr<unsigned>("count", 1);
    CheckFaultTarget(rule.target, rule.fault.kind);
    simulator_.Faults().Add(std::move(rule));
}

void Control::ListFaults(const Arguments&) {
    for (const auto& rule : simulator_.Faults().List()) {
        Fields fields;
        fields.Add("on", rule.target)
            .Add("do", FaultName(rule.fault.kind))
            .Add("count", rule.count ? std::to_string(*rule.count) : "all");
        simulator_.Events().Print("model fault" + fields.Text());
    }
}

void Control::ClearFaults(const Arguments&) {
    simulator_.Faults().Clear();
}

// ---- Output ----

void Control::Show(const Arguments& arguments) {
    std::optional<SlotIndex> slot;
    if (arguments.Has("slot"))
        slot = arguments.RequiredNumber<SlotIndex>("slot");
    const bool withDirectories = arguments.SwitchOr("directories", false);
    if (arguments.Has("changer")) {
        FindChanger(arguments)->Print(slot, withDirectories);
        return;
    }
    for (const auto& changer : simulator_.Changers())
        changer->Print(slot, withDirectories);
}

void Control::ChooseEvents(const Arguments& arguments) {
    const std::string text = arguments.RequiredText("kinds");
    std::set<std::string, std::less<>> kinds;
    std::istringstream list(text);
    for (std::string kind; std::getline(list, kind, ',');)
        kinds.insert(kind);
    simulator_.Events().SetKinds(text == "all" ? std::nullopt : std::optional(kinds));
}

void Control::Help(const Arguments&) {
    for (const Command& command : kCommands) {
        const Fields fields = Fields().Add("command", command.name).Add("usage", command.usage);
        simulator_.Events().Print("model help" + fields.Text());
    }
}

} // namespace simulator
