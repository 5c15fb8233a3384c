#include "Control.h"

#include "Frame.h"

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
    timing.drives.moving = arguments.GetTime("moving", timing.drives.moving);
    timing.drives.spinUp = arguments.GetTime("spin-up", timing.drives.spinUp);
    timing.appear = arguments.GetTime("appear", timing.appear);
    timing.patience = arguments.GetTime("patience", timing.patience);
    return timing;
}

FileSystemOptions ReadFileSystemOptions(const Arguments& arguments) {
    FileSystemOptions options;
    options.mountPoint = arguments.GetText("mount", "");
    const std::string info = arguments.GetText("info", "xml");
    if (info != "xml" && info != "binary")
        throw CommandError("info is xml or binary");
    options.binaryInfo = info == "binary";
    options.kernelCache = arguments.GetSwitch("kernel-cache", false);
    return options;
}

// Makes the content of each partition in turn.
class ContentReader {
public:
    explicit ContentReader(const Arguments& arguments) : arguments_(arguments) {
        shape_.seed = arguments.GetNumber("seed", shape_.seed);
        shape_.directories = arguments.GetNumber("directories", shape_.directories);
        shape_.files = arguments.GetNumber("files", shape_.files);
        shape_.depth = arguments.GetNumber("depth", shape_.depth);
        if (arguments.Has("folder"))
            folder_ = ReadFolderTree(arguments.NeedText("folder"));
    }

    std::shared_ptr<const DiscTree> Read(unsigned partition) {
        const std::string key = "folder" + std::to_string(partition);
        if (arguments_.Has(key))
            return ReadFolderTree(arguments_.NeedText(key));
        if (folder_)
            return folder_;
        SyntheticTreeOptions shape = shape_;
        shape.seed += partition - 1;
        return MakeSyntheticTree(shape);
    }

private:
    const Arguments& arguments_;
    SyntheticTreeOptions shape_;
    std::shared_ptr<const DiscTree> folder_;
};

NewDisc ReadDisc(const Arguments& arguments) {
    NewDisc disc;
    disc.slot = arguments.NeedNumber<SlotIndex>("slot");
    disc.name = arguments.GetText("name", "disc-" + std::to_string(disc.slot));
    if (disc.name.empty() || disc.name.find('/') != disc.name.npos)
        throw CommandError("that is no name for a media root");
    disc.kind = arguments.GetNumber<std::uint16_t>("kind", 1);
    disc.identified = arguments.GetSwitch("identified", false);
    const auto unformatted = arguments.GetNumberSet("unformatted");
    ContentReader content(arguments);
    const unsigned partitions = arguments.GetNumber<std::uint8_t>("partitions", 1);
    for (unsigned partition = 1; partition <= partitions; ++partition)
        disc.partitions.push_back({content.Read(partition), !unformatted.contains(partition)});
    return disc;
}

Fault ReadFault(const Arguments& arguments) {
    Fault fault;
    fault.kind = ParseFaultName(arguments.NeedText("do"));
    const bool replaces = fault.kind == FaultKind::Error || fault.kind == FaultKind::Silence ||
                          fault.kind == FaultKind::Close;
    fault.act = arguments.GetSwitch("act", !replaces);
    switch (fault.kind) {
    case FaultKind::Error:
        fault.code = arguments.NeedNumber<std::int64_t>("code");
        fault.code = fault.code < 0x10000 ? MakeWireCode(fault.code) : fault.code;
        fault.text = arguments.GetText("text", "");
        break;
    case FaultKind::Late:
        fault.after = arguments.GetTime("after", {});
        break;
    case FaultKind::HeaderSize:
        fault.size = arguments.NeedNumber<std::uint16_t>("size");
        break;
    case FaultKind::Split:
    case FaultKind::Huge:
        fault.size = arguments.NeedNumber<std::uint32_t>("size");
        break;
    case FaultKind::Raw:
        fault.raw = arguments.Has("file") ? ReadFile(arguments.NeedText("file"))
                                          : ParseHexBytes(arguments.NeedText("hex"));
        break;
    default:
        break;
    }
    return fault;
}

void CheckFaultTarget(const std::string& target, FaultKind kind) {
    const bool isOfReplies = kind == FaultKind::Error || kind == FaultKind::Late;
    if (target == "connection" && kind != FaultKind::Close)
        throw CommandError("a connection can only be closed");
    if (target == "notification" && (isOfReplies || kind == FaultKind::Close))
        throw CommandError("no such fault of notifications");
}

} // namespace

// ---- Which commands there are ----

const Control::Command Control::kCommands[] = {
    {"add-changer",
     "changer=GUID slots=N drives=N [mount=DIRECTORY] [moving=MS] [spin-up=MS] [appear=MS] "
     "[patience=MS] [ready=yes] [info=xml|binary] [kernel-cache=no]",
     &Control::AddChanger},
    {"remove-changer", "changer=GUID", &Control::RemoveChanger},
    {"mount", "changer=GUID [mount=DIRECTORY]", &Control::Mount},
    {"unmount", "changer=GUID", &Control::Unmount},
    {"ready", "changer=GUID value=yes|no", &Control::SetReady},
    {"timing", "changer=GUID [moving=MS] [spin-up=MS] [appear=MS] [patience=MS]",
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
    {"hold", "", &Control::Hold},
    {"release", "[once=no]", &Control::Release},
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
            throw CommandError("no such command, try help");
        const Arguments arguments(parsed.values, command->usage);
        if (!command->run)
            return false;
        (this->*command->run)(arguments);
        simulator_.GetPublisher().Flush();
        simulator_.GetEvents().Print("ok");
    } catch (const std::exception& error) {
        simulator_.GetEvents().Print("error " + Quote(error.what()));
    }
    return true;
}

std::shared_ptr<Changer> Control::GetChanger(const Arguments& arguments) {
    return simulator_.GetChanger(arguments.NeedChanger());
}

// ---- Changers ----

void Control::AddChanger(const Arguments& arguments) {
    ChangerConfig shape;
    shape.guid = arguments.NeedChanger();
    shape.slots = arguments.NeedNumber<std::uint16_t>("slots");
    shape.drives = arguments.NeedNumber<std::uint16_t>("drives");
    shape.ready = arguments.GetSwitch("ready", true);
    simulator_.AddChanger(shape, ReadTiming(arguments, {}), ReadFileSystemOptions(arguments));
}

void Control::RemoveChanger(const Arguments& arguments) {
    simulator_.RemoveChanger(arguments.NeedChanger());
}

void Control::Mount(const Arguments& arguments) {
    simulator_.MountFileSystem(arguments.NeedChanger(), arguments.GetText("mount", ""));
}

void Control::Unmount(const Arguments& arguments) {
    simulator_.UnmountFileSystem(arguments.NeedChanger());
}

void Control::SetReady(const Arguments& arguments) {
    GetChanger(arguments)->SetReady(arguments.NeedSwitch("value"));
}

void Control::SetTiming(const Arguments& arguments) {
    const auto changer = GetChanger(arguments);
    changer->SetTiming(ReadTiming(arguments, changer->GetTiming()));
}

void Control::SetPreferences(const Arguments& arguments) {
    const auto changer = GetChanger(arguments);
    Preferences preferences = changer->GetPreferences();
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
    const auto changer = GetChanger(arguments);
    NewDisc disc = ReadDisc(arguments);
    changer->Put(std::move(disc));
}

void Control::Take(const Arguments& arguments) {
    GetChanger(arguments)->Take(arguments.NeedNumber<SlotIndex>("slot"));
}

void Control::Identify(const Arguments& arguments) {
    const auto changer = GetChanger(arguments);
    const bool isRequested = arguments.GetSwitch("value", true);
    if (!arguments.Has("slot")) {
        changer->RequestChangerIdentification(isRequested);
        return;
    }
    const auto slot = arguments.NeedNumber<SlotIndex>("slot");
    const Outcome outcome = changer->RequestDiscIdentification(slot, isRequested);
    if (outcome.code != ReplyCode::Success)
        throw CommandError(outcome.text);
}

void Control::Load(const Arguments& arguments) {
    MountRequest request;
    request.slot = arguments.NeedNumber<SlotIndex>("slot");
    const Outcome outcome = GetChanger(arguments)->Mount(request);
    if (outcome.code != ReplyCode::Success && outcome.code != ReplyCode::UnderWay)
        throw CommandError(outcome.text);
}

void Control::Eject(const Arguments& arguments) {
    const auto changer = GetChanger(arguments);
    const auto slot = arguments.NeedNumber<SlotIndex>("slot");
    const Outcome outcome = changer->Eject({slot, {}, true});
    if (outcome.code != ReplyCode::Success && outcome.code != ReplyCode::UnderWay)
        throw CommandError(outcome.text);
}

void Control::Forget(const Arguments& arguments) {
    GetChanger(arguments)->Forget(arguments.NeedNumber<SlotIndex>("slot"));
}

void Control::Abort(const Arguments& arguments) {
    const auto changer = GetChanger(arguments);
    changer->RequestAbort(arguments.NeedText("client"), arguments.GetSwitch("create", false));
}

// ---- Sockets ----

void Control::Start(const Arguments&) {
    simulator_.Start();
}

void Control::Stop(const Arguments&) {
    simulator_.Stop();
}

void Control::Push(const Arguments& arguments) {
    Publisher& publisher = simulator_.GetPublisher();
    const bool together = arguments.GetSwitch("together", false);
    for (auto left = arguments.GetNumber<unsigned>("times", 1); left > 0; --left) {
        if (together)
            publisher.MarkTogether();
        else
            publisher.Mark(kAllNotifications);
        publisher.Flush(); // or the next one would share its turn
    }
}

void Control::Hold(const Arguments&) {
    simulator_.GetPublisher().Hold();
}

void Control::Release(const Arguments& arguments) {
    if (arguments.GetSwitch("once", false))
        simulator_.GetPublisher().ReleaseOnce();
    else
        simulator_.GetPublisher().Release();
}

void Control::SetPulse(const Arguments& arguments) {
    simulator_.GetPublisher().SetPulse(milliseconds(arguments.NeedNumber<std::int32_t>("every")));
}

void Control::CopyNotifications(const Arguments& arguments) {
    simulator_.CopyNotifications(arguments.NeedText("file"));
}

void Control::SetSerial(const Arguments& arguments) {
    simulator_.SetSerial(arguments.NeedSwitch("value"));
}

void Control::Notify(const Arguments& arguments) {
    std::string bytes;
    if (arguments.Has("payload"))
        bytes = EncodeFrame(ReadFile(arguments.NeedText("payload")));
    else if (arguments.Has("file"))
        bytes = ReadFile(arguments.NeedText("file"));
    else
        bytes = ParseHexBytes(arguments.NeedText("hex"));
    simulator_.SendRaw(CutIntoPieces(bytes, arguments.GetNumber<std::size_t>("split", 0)));
}

// ---- Faults ----

void Control::AddFault(const Arguments& arguments) {
    Faults::Order order;
    order.target = arguments.NeedText("on");
    order.fault = ReadFault(arguments);
    if (arguments.GetText("count", "1") != "all")
        order.count = arguments.GetNumber<unsigned>("count", 1);
    CheckFaultTarget(order.target, order.fault.kind);
    simulator_.GetFaults().Add(std::move(order));
}

void Control::ListFaults(const Arguments&) {
    for (const auto& order : simulator_.GetFaults().List()) {
        Fields fields;
        fields.Add("on", order.target)
            .Add("do", GetFaultName(order.fault.kind))
            .Add("count", order.count ? std::to_string(*order.count) : "all");
        simulator_.GetEvents().Print("model fault" + fields.GetText());
    }
}

void Control::ClearFaults(const Arguments&) {
    simulator_.GetFaults().Clear();
}

// ---- Looking ----

void Control::Show(const Arguments& arguments) {
    std::optional<SlotIndex> slot;
    if (arguments.Has("slot"))
        slot = arguments.NeedNumber<SlotIndex>("slot");
    const bool withDirectories = arguments.GetSwitch("directories", false);
    if (arguments.Has("changer")) {
        GetChanger(arguments)->Print(slot, withDirectories);
        return;
    }
    for (const auto& changer : simulator_.GetChangers())
        changer->Print(slot, withDirectories);
}

void Control::ChooseEvents(const Arguments& arguments) {
    const std::string text = arguments.NeedText("kinds");
    std::set<std::string, std::less<>> kinds;
    std::istringstream list(text);
    for (std::string kind; std::getline(list, kind, ',');)
        kinds.insert(kind);
    simulator_.GetEvents().SetKinds(text == "all" ? std::nullopt : std::optional(kinds));
}

void Control::Help(const Arguments&) {
    for (const Command& command : kCommands) {
        const Fields fields = Fields().Add("command", command.name).Add("usage", command.usage);
        simulator_.GetEvents().Print("model help" + fields.GetText());
    }
}

} // namespace simulator
