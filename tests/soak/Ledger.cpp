#include "Ledger.h"

namespace {

constexpr const char* kMount = "mount disc";
constexpr const char* kEject = "eject disc";
constexpr const char* kWithdrawDisc = "withdraw the request for a disc";
constexpr const char* kWithdrawChanger = "withdraw the request for a changer";
constexpr const char* kRequest = "request an identification";
constexpr const char* kStatus = "set client status";

std::string KindOf(const testbed::Event& request) {
    const std::string command = request["command"];
    if (command != "request identification")
        return command;
    if (request["request"] != "no")
        return kRequest;
    return request["storage-element-index"].empty() ? kWithdrawChanger : kWithdrawDisc;
}

std::string Describe(const std::string& what, int ordered, int counted) {
    return what + ": " + std::to_string(ordered) + " ordered, " + std::to_string(counted) +
           " counted";
}

} // namespace

std::string GuidOf(int changer) {
    return "5000C500ABCD00A" + std::to_string(changer + 1);
}

void Ledger::OrderIdentification(Place place) {
    ++discs_[place].ordered;
    ++requests_[kMount].ordered;
    ++requests_[kEject].ordered;
    requests_[kWithdrawDisc].ordered += 2;
}

void Ledger::OrderBuild(int reports) {
    requests_[kWithdrawChanger].ordered += 2;
    requests_[kStatus].ordered += reports;
}

void Ledger::OrderClearing() {
    ++requests_[kStatus].ordered;
}

void Ledger::OrderCutOffIdentification(Place place, Step last) {
    requests_[kWithdrawDisc].ordered += last == Step::SecondWithdrawal ? 2 : 1;
    requests_[kMount].ordered += last >= Step::Mount ? 1 : 0;
    requests_[kEject].ordered += last >= Step::Eject ? 1 : 0;
    discs_[place].ordered += last > Step::Mount ? 1 : 0;
}

void Ledger::OrderCutOffBuild(int reports) {
    ++requests_[kWithdrawChanger].ordered;
    requests_[kStatus].ordered += reports;
}

void Ledger::CountRequest(const testbed::Event& request) {
    ++requests_[KindOf(request)].counted;
}

void Ledger::CountDisc(const testbed::Event& slot) {
    const int changer = slot["changer"].back() - '1';
    const int times = std::stoi(slot["times-identified"]);
    discs_[{changer, std::stoi(slot["slot"])}].counted += times;
    identifications_ += times;
}

std::vector<std::string> Ledger::Differences() const {
    std::vector<std::string> differences;
    for (const auto& [place, account] : discs_) {
        if (account.ordered != account.counted) {
            const std::string disc =
                GuidOf(place.changer) + "/" + std::to_string(place.slot) + " identified";
            differences.push_back(Describe(disc, account.ordered, account.counted));
        }
    }
    for (const auto& [kind, account] : requests_)
        if (account.ordered != account.counted)
            differences.push_back(Describe(kind, account.ordered, account.counted));
    return differences;
}
