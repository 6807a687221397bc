#pragma once

struct Arguments;

/// Converts a file. The target is written aside and put in its place when it is whole. Throws
/// `ConversionError` when that cannot be done.
void convert(Arguments const& arguments);
