#pragma once

#include <string>
#include <string_view>

/// A short report that a person reads: a heading, below it lines of a name and a value.
class TextReport {
public:
    explicit TextReport(std::string_view heading);

    void addLine(std::string_view name, std::string_view value);

    /// The report, ended by an empty line.
    std::string text() const { return _text + '\n'; }

private:
    std::string _text;
};

/// A count of bytes with its unit.
std::string byteCount(unsigned long long count);
