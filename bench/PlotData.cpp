#include "PlotData.h"

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

std::string Quoted(const std::string& word) {
    return '"' + word + '"';
}

} // namespace

PlotData::PlotData(const std::vector<std::string>& columns) : text_("#") {
    for (const std::string& column : columns)
        text_ += ' ' + Quoted(column);
    text_ += '\n';
}

void PlotData::Add(const std::string& name, const std::vector<double>& numbers) {
    text_ += Quoted(name);
    Add(numbers);
}

void PlotData::Add(const std::vector<double>& numbers) {
    for (const double number : numbers) {
        char digits[32];
        std::snprintf(digits, sizeof digits, " %.6g", number);
        text_ += digits;
    }
    text_ += '\n';
}

void PlotData::BeginSet(const std::string& name) {
    text_ += "\n\n" + Quoted(name) + '\n';
}

void PlotData::Write(const std::string& name) const {
    const std::string folder = testbed::ProgramPath("bench-data");
    std::filesystem::create_directories(folder);
    std::ofstream file(folder + "/" + name + ".dat");
    file << text_;
    file.close();
    testbed::Require(file.good(), "cannot write the data of picture " + name);
}

} // namespace bench
