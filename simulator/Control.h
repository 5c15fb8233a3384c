// The text protocol: carries the commands of a person or of a script out.
#pragma once

#include "Arguments.h"
#include "Simulator.h"

#include <string_view>

namespace simulator {

class Control {
public:
    explicit Control(Simulator& simulator) : simulator_(simulator) {}

    /// Carries one line out and prints its answer. False after "quit", whose answer is left to who
    /// takes the simulator down.
    bool Execute(std::string_view line);

private:
    struct Command {
        std::string_view name;
        std::string_view usage;
        void (Control::*run)(Arguments&);
    };
    static const Command kCommands[];

    void Run(const Command& command, Arguments& arguments);

    void AddChanger(Arguments& arguments);
    void RemoveChanger(Arguments& arguments);
    void Mount(Arguments& arguments);
    void Unmount(Arguments& arguments);
    void SetReady(Arguments& arguments);
    void SetTiming(Arguments& arguments);
    void SetPreferences(Arguments& arguments);
    void SetRootPreferences(Arguments& arguments);
    void Put(Arguments& arguments);
    void Take(Arguments& arguments);
    void Identify(Arguments& arguments);
    void Load(Arguments& arguments);
    void Eject(Arguments& arguments);
    void Forget(Arguments& arguments);
    void Abort(Arguments& arguments);
    void Start(Arguments& arguments);
    void Stop(Arguments& arguments);
    void Push(Arguments& arguments);
    void Hold(Arguments& arguments);
    void Release(Arguments& arguments);
    void SetPulse(Arguments& arguments);
    void SetSerial(Arguments& arguments);
    void Notify(Arguments& arguments);
    void AddFault(Arguments& arguments);
    void ListFaults(Arguments& arguments);
    void ClearFaults(Arguments& arguments);
    void Show(Arguments& arguments);
    void ChooseEvents(Arguments& arguments);
    void Help(Arguments& arguments);

    std::shared_ptr<Changer> GetChanger(Arguments& arguments);

    Simulator& simulator_;
};

} // namespace simulator
