#ifndef TESTS_SOAK_LEDGER_H
#define TESTS_SOAK_LEDGER_H

#include "testbed/Event.h"

#include <map>
#include <string>
#include <vector>

/* A slot of a changer. Changers are numbered from 0. */
struct Place {
    int changer;
    int slot;

    auto operator<=>(const Place&) const = default;
};

/* What an identification consists of. */
enum class Step { FirstWithdrawal, Mount, Eject, SecondWithdrawal };

std::string GuidOf(int changer); // as events tell it

/* What must have happened by the rules, beside what the server has counted. */
class Ledger {
public:
    // A disc is identified once more: its request is withdrawn twice, it is mounted and ejected.
    void OrderIdentification(Place place);
    // A changer is built: its request is withdrawn twice, and so many reports are sent, of which
    // the last clears the status.
    void OrderBuild(int reports);
    void OrderClearing();
    // The same as far as they come with a server that is killed: an identification whose last step
    // is requested but not carried out, and a build whose last report is followed by nothing.
    void OrderCutOffIdentification(Place place, Step last);
    void OrderCutOffBuild(int reports);

    // The output log of one server: its requests, and its "model slot" lines.
    void CountRequest(const testbed::Event& request);
    void CountDisc(const testbed::Event& slot);

    int Identifications() const {
        return identifications_;
    }
    int Discs() const {
        return static_cast<int>(discs_.size());
    }
    // Who differs, one line each.
    std::vector<std::string> Differences() const;

private:
    struct Account {
        int ordered = 0;
        int counted = 0;
    };

    int identifications_ = 0; // counted
    std::map<Place, Account> discs_;
    std::map<std::string, Account> requests_;
};

#endif
