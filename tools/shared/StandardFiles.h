#pragma once

/// Opens those of standard input, output and error that whoever started the process has closed, as
/// cron does, on /dev/null: a file that is opened later would get the number of one of them, and
/// what is printed would go into it. The first thing that a program does.
void openMissingStandardFiles();
