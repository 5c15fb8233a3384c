#ifndef SIMULATOR_CONTROL_H
#define SIMULATOR_CONTROL_H

/* The text protocol of docs/simulator.md: executes the commands of a person or a script. */

#include "simulator/Arguments.h"
#include "simulator/Simulator.h"

#include <memory>
#include <string_view>

namespace simulator {

class Control {
public:
    // `simulator` must outlive the object.
    explicit Control(Simulator& simulator) : simulator_(simulator) {}

    // Executes one line and prints its answer; blocks until its notifications are queued. False
    // after "quit": the caller destroys the simulator, then prints "ok".
    bool Execute(std::string_view line);

private:
    struct Command {
        std::string_view name;
        std::string_view usage;
        void (Control::*run)(const Arguments&);
    };
    static const Command kCommands[];

    void AddChanger(const Arguments& arguments);
    void RemoveChanger(const Arguments& arguments);
    void Mount(const Arguments& arguments);
    void Unmount(const Arguments& arguments);
    void SetReady(const Arguments& arguments);
    void SetTiming(const Arguments& arguments);
    void SetPreferences(const Arguments& arguments);
    void SetRootPreferences(const Arguments& arguments);
    void Put(const Arguments& arguments);
    void Take(const Arguments& arguments);
    void Identify(const Arguments& arguments);
    void Load(const Arguments& arguments);
    void Eject(const Arguments& arguments);
    void Forget(const Arguments& arguments);
    void Abort(const Arguments& arguments);
    void Start(const Arguments& arguments);
    void Stop(const Arguments& arguments);
    void Push(const Arguments& arguments);
    void Pause(const Arguments& arguments);
    void Resume(const Arguments& arguments);
    void SetPulse(const Arguments& arguments);
    void CopyNotifications(const Arguments& arguments);
    void SetSerial(const Arguments& arguments);
    void Notify(const Arguments& arguments);
    void AddFault(const Arguments& arguments);
    void ListFaults(const Arguments& arguments);
    void ClearFaults(const Arguments& arguments);
    void Show(const Arguments& arguments);
    void ChooseEvents(const Arguments& arguments);
    void Help(const Arguments& arguments);

    std::shared_ptr<Changer> FindChanger(const Arguments& arguments);

    Simulator& simulator_;
};

} // namespace simulator

#endif
