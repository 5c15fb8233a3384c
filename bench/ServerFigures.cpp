#include "BareClient.h"
#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "Comparison.h"
#include "Figures.h"
#include "LocalSocket.h"
#include "ProcessTable.h"
#include "Program.h"
#include "SingleProcessTable.h"
#include "testbed/Failure.h"
#include "testbed/Process.h"
#include "testbed/Sandbox.h"

#include <string>

namespace bench {
namespace {

constexpr std::size_t kPayload = 1024; // bytes of a request

void MeasureTable(Report& report) {
    const Sleepers others(kOtherProcesses);
    Comparison comparison;
    comparison.Add("ours", [] { ReadProcessTable(); });
    comparison.Add("pgrep", [] { RunProgram({"pgrep", "-x", "sleep"}); });
    comparison.Run();
    report.AddAtMost("process table with 500 other processes: over pgrep -x", 0.25,
                     comparison.Ratio("ours", "pgrep"), "",
                     comparison.DescribeTimes({"ours", "pgrep"}));
    report.AddAtMost("process table: time per process", 8,
                     comparison.Time("ours").Times(1e6 / static_cast<double>(ReadProcessTable())),
                     "µs", "");
}

// A request with a payload of kPayload bytes, as a dictionary and as a frame.
class Request {
public:
    Request()
        : dictionary_(CFDictionaryCreateMutable(kCFAllocatorDefault, 0,
                                                &kCFTypeDictionaryKeyCallBacks,
                                                &kCFTypeDictionaryValueCallBacks)) {
        SetText("");
        SetText(std::string(kPayload - MakeFrame().size() + sizeof(FrameHeader), 'x'));
    }
    ~Request() {
        CFRelease(dictionary_);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    CFDictionaryRef Dictionary() const {
        return dictionary_;
    }
    std::string MakeFrame() const {
        CFDataRef payload = CFPropertyListCreateXMLData(kCFAllocatorDefault, dictionary_);
        CFDataRef frame = CreateFrame(payload);
        const std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(frame)),
                                static_cast<std::size_t>(CFDataGetLength(frame)));
        CFRelease(payload);
        CFRelease(frame);
        return bytes;
    }

private:
    void SetText(const std::string& text) {
        CFStringRef value =
            CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
        CFDictionarySetValue(dictionary_, CFSTR("message"), value);
        CFRelease(value);
    }

    CFMutableDictionaryRef dictionary_;
};

void Exchange(CFDictionaryRef message) {
    CFDictionaryRef reply = nullptr;
    VErrLink* err = SendMessageToChangerServer(message, &reply);
    if (err != nullptr) {
        VErrLogAndCatch(&err);
        throw testbed::Failure("an exchange failed");
    }
    CFRelease(reply);
}

void MeasureExchange(Report& report) {
    testbed::OutputLog outputLog;
    testbed::Process server({testbed::ProgramPath("carouseld-echo"), {"carouseld-echo"}, {}},
                            outputLog, testbed::Stream::Server, testbed::Stream::Server);
    outputLog.Await(testbed::Stream::Server, "listening");
    const SingleProcessTable table(server.Pid());
    const std::string path = RequestPath(server.Pid());
    const Request request;
    const std::string frame = request.MakeFrame();
    Comparison comparison;
    comparison.Add("ours", [&] { Exchange(request.Dictionary()); });
    comparison.Add("bare", [&] { ExchangeFrame(path, frame); });
    comparison.Run();
    report.AddAtMost("an exchange of 1 KiB: over a bare client", 2.5,
                     comparison.Ratio("ours", "bare"), "",
                     comparison.DescribeTimes({"ours", "bare"}));
    server.CloseInput();
    const int status = server.AwaitEnd();
    if (status != 0)
        throw testbed::Failure("carouseld-echo " + testbed::DescribeEnd(status));
}

} // namespace

void MeasureServer(Report& report) {
    report.BeginSection(
        "Commands and discovery",
        "The benchmark process reads the process table by the daemon's function; the "
        "reference is a whole process `pgrep -x sleep`. In an exchange, the server echoes "
        "the request, and its process is known in advance; the reference is a bare client, "
        "which only connects, writes, reads and closes.");
    MeasureTable(report);
    MeasureExchange(report);
}

} // namespace bench
