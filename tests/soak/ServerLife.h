#ifndef TESTS_SOAK_SERVERLIFE_H
#define TESTS_SOAK_SERVERLIFE_H

#include "Dialogue.h"
#include "Performance.h"
#include "ServerCrash.h"

#include <set>
#include <string>
#include <vector>

/* What one server lives through makes the following of the soak's figures. */
inline constexpr int kNotificationsOfALife = 100;
inline constexpr int kIdentificationsOfALife = 10;
inline constexpr int kLivesToABuild = 2;
inline constexpr int kBuildsToAnAbort = 3;
inline constexpr int kLivesToACrash = 10;
inline constexpr int kFirstCrash = 5;

/* A command that has a changer built every day at an hour that is far from now: the daily build is
   scheduled with every notification and does not begin. */
std::string DailyBuild(int changer);

/* One server, from its start to its end, and what it has the daemon do meanwhile. Which changers
   and discs take part turns with the number of the life, so that all get their share. */
class ServerLife {
public:
    ServerLife(Performance& performance, int number);

    void Play();

    // Instead of Play, after all other lives: every disc once more, and every changer built. A disc
    // or changer whose mark of being worked on was left standing would never come up.
    void PlayFinale();

    // What the server has recorded goes into the account.
    void Count();

    // In good order, or killed: with nothing to do, or in the middle of it.
    void End();

private:
    // Two discs of one changer to be identified, the second while the first still is.
    struct Couple {
        Place first;
        Place second;
        bool isSecondNew; // put in and never looked at; else it is requested, too
    };

    int ChangerAt(int position) const {
        return (number_ + position) % kChangers;
    }
    int SlotAt(int position) const {
        return (number_ / kChangers + position) % kDiscs;
    }
    bool HasBuild() const;
    bool HasAbort() const;
    bool HasCrash() const;
    std::vector<Couple> ChooseCouples() const;

    void Begin(const std::set<Place>& newDiscs);
    void AddChanger(int changer, const std::set<Place>& newDiscs);
    void IdentifyCouples(const std::vector<Couple>& couples);
    void AwaitNewChangers();
    void Remount(int changer);
    void IdentifyBesideABuild();
    void SendWhatIsMissing();
    void AwaitAWholeBuild(int changer);
    void HaltABuildAndAbortIt(int changer);
    void LetAnAbortedBuildEnd(int changer);
    void IdentifyTheLast();
    void Request(Place place);
    void IdentifyEveryDisc();
    void BuildEveryChanger();

    Performance& performance_;
    Dialogue dialogue_;
    const int number_;
    ServerCrash crash_;
    bool isCutOff_ = false;
};

#endif
