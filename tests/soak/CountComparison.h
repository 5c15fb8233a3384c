#ifndef TESTS_SOAK_COUNTCOMPARISON_H
#define TESTS_SOAK_COUNTCOMPARISON_H

#include "testbed/Event.h"

#include <map>
#include <string>
#include <vector>

/* A slot of a changer. Changers and slots are numbered from 0. */
struct Place {
    int changer;
    int slot;

    auto operator<=>(const Place&) const = default;
};

/* The requests of an identification, in order. */
enum class Step { FirstWithdrawal, Mount, Eject, SecondWithdrawal };

/* The GUID in the form that events have. */
std::string GuidOf(int changer);

/* Expected and observed counts of requests and of identifications per disc. */
class CountComparison {
public:
    // Expects one more identification of a disc: two withdrawals, a mount and an eject.
    void ExpectIdentification(Place place);
    // Expects one more build of a changer: two withdrawals and `reports` status requests, of which
    // the last clears the status.
    void ExpectBuild(int reports);
    void ExpectStatusCleared();
    // Expects an identification that a killed server interrupts: `last` is requested but not
    // executed.
    void ExpectInterruptedIdentification(Place place, Step last);
    // Expects a build that a killed server interrupts after `reports` status requests.
    void ExpectInterruptedBuild(int reports);

    // Count a request event, and a "slot" line of the model, of a server.
    void ObserveRequest(const testbed::Event& request);
    void ObserveDisc(const testbed::Event& slot);

    int Identifications() const {
        return identifications_;
    }
    int Discs() const {
        return static_cast<int>(discs_.size());
    }
    // One line for each count that differs from the expected one.
    std::vector<std::string> Differences() const;

private:
    struct Count {
        int expected = 0;
        int observed = 0;
    };

    int identifications_ = 0; // counted
    std::map<Place, Count> discs_;
    std::map<std::string, Count> requests_;
};

#endif
