#include "CountComparison.h"

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

std::string Describe(const std::string& what, int expected, int observed) {
    return what + ": " + std::to_string(expected) + " expected, " + std::to_string(observed) +
           " observed";
}

} // namespace

std::string GuidOf(int changer) {
    return "5000C500ABCD00A" + std::to_string(changer + 1);
}

void CountComparison::ExpectIdentification(Place place) {
    ++discs_[place].expected;
    ++requests_[kMount].expected;
    ++requests_[kEject].expected;
    requests_[kWithdrawDisc].expected += 2;
}

void CountComparison::ExpectBuild(int reports) {
    requests_[kWithdrawChanger].expected += 2;
    requests_[kStatus].expected += reports;
}

void CountComparison::ExpectStatusCleared() {
    ++requests_[kStatus].expected;
}

void CountComparison::ExpectInterruptedIdentification(Place place, Step last) {
    requests_[kWithdrawDisc].expected += last == Step::SecondWithdrawal ? 2 : 1;
    requests_[kMount].expected += last >= Step::Mount ? 1 : 0;
    requests_[kEject].expected += last >= Step::Eject ? 1 : 0;
    discs_[place].expected += last > Step::Mount ? 1 : 0;
}

void CountComparison::ExpectInterruptedBuild(int reports) {
    ++requests_[kWithdrawChanger].expected;
    requests_[kStatus].expected += reports;
}

void CountComparison::ObserveRequest(const testbed::Event& request) {
    ++requests_[KindOf(request)].observed;
}

void CountComparison::ObserveDisc(const testbed::Event& slot) {
    const int changer = slot["changer"].back() - '1';
    const int times = std::stoi(slot["times-identified"]);
    discs_[{changer, std::stoi(slot["slot"])}].observed += times;
    identifications_ += times;
}

std::vector<std::string> CountComparison::Differences() const {
    std::vector<std::string> differences;
    for (const auto& [place, count] : discs_) {
        if (count.expected != count.observed) {
            const std::string disc =
                GuidOf(place.changer) + "/" + std::to_string(place.slot) + " identified";
            differences.push_back(Describe(disc, count.expected, count.observed));
        }
    }
    for (const auto& [kind, count] : requests_)
        if (count.expected != count.observed)
            differences.push_back(Describe(kind, count.expected, count.observed));
    return differences;
}
