#pragma once

#include "JSONLine.h"

#include <array>
#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

/// Writes JSON as its values come, byte for byte as `jsonLine` would, and keeps none of them. For
/// reports about thousands of files: building the values takes longer than reading the files.
class JSONText {
public:
    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }

    /// A value follows. The name is printable ASCII without quotes and backslashes.
    void name(std::string_view name);

    void add(std::string_view text);
    void add(std::same_as<bool> auto boolean) { addLiteral(boolean ? "true" : "false"); }
    /// Without a fraction where it has none.
    void add(double number);
    void addValue(JSON const& value);

    template <std::integral Number>
    requires(!std::same_as<Number, bool>) void add(Number number)
    {
        std::array<char, 20> digits; // As many as 64 bits have, sign included.
        addLiteral({ digits.data(), std::to_chars(digits.begin(), digits.end(), number).ptr });
    }

    void addNamed(std::string_view itsName, auto const& value)
    {
        name(itsName);
        add(value);
    }

    /// A path as `addPath` of `JSONLine.h` adds it.
    void addPath(std::string_view itsName, std::string_view bytesName, std::string_view path);

    /// What was written, as a line.
    std::string takeLine() &&;

private:
    void open(char bracket);
    void close(char bracket);
    void separate();
    void addLiteral(std::string_view literal);

    std::string _text;
    bool _isFirst { true }; ///< Of its object or array, or after its name.
};
