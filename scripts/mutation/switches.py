"""Puts many mutants into one build; the variable KXMD_MUTANT tells which of them runs.

A function with mutants becomes a choice between its body with each of them and its body as it was. Mutants
outside functions, and the few that do not compile in this form, are left to builds of their own.
"""

import bisect
import re

VARIABLE = "KXMD_MUTANT"
HEAD = '#include "scripts/mutation/ActiveMutant.h"'
# What leads to the place of an error in the output of a build.
BLAMED = re.compile(r"/source/(\S+?):(\d+):(?:\d+:)?\s+(?:error|fatal error|required from)\b")


class Switches:
    """Mutants that can be switched on, each by its number, counted from 1."""

    def __init__(self, sources, mutations):
        self.sources = sources
        self.mutations = {number: mutation for number, mutation in enumerate(mutations, 1)
                          if sources[mutation.path].function_around(mutation)}

    def texts(self):
        """The text of each source with switches."""
        numbers = {}
        for number, mutation in self.mutations.items():
            numbers.setdefault(mutation.path, []).append(number)
        self.starts = {}  # For each source the first lines of its parts, and whose mutant each part is.
        return {path: self.joined(path, self.parts_of(path, of_path)) for path, of_path in numbers.items()}

    def parts_of(self, path, numbers):
        """Texts with the number of their mutant; 0 for code as it was."""
        source, functions = self.sources[path], {}
        for number in numbers:
            functions.setdefault(source.function_around(self.mutations[number]), []).append(number)
        yield HEAD, 0
        done = 0
        for (start, end), of_function in sorted(functions.items()):
            yield source.text[done:start], 0
            for number in of_function:
                mutation = self.mutations[number]
                body = source.text[start:mutation.start] + mutation.replacement + source.text[mutation.end:end]
                yield f"if (isActiveMutant({number})) {{{body}}} else", number
            yield f"{{{source.text[start:end]}}}", 0
            done = end
        yield source.text[done:], 0

    def joined(self, path, parts):
        texts, line = [], 1
        self.starts[path] = []
        for text, number in parts:
            self.starts[path].append((line, number))
            texts.append(text)
            line += text.count("\n") + 1
        return "\n".join(texts)

    def drop_blamed(self, output):
        """Drops the mutants in which a build found errors; all of a source if only the code around them is
        blamed. Whether there were any."""
        places = [(path, int(line)) for path, line in BLAMED.findall(output) if path in self.starts]
        blamed = {self.number_at(*place) for place in places} - {0}
        if not blamed:
            paths = {path for path, _ in places}
            blamed = {number for number, mutation in self.mutations.items() if mutation.path in paths}
        for number in blamed:
            del self.mutations[number]
        return bool(blamed)

    def number_at(self, path, line):
        return self.starts[path][bisect.bisect(self.starts[path], line, key=lambda start: start[0]) - 1][1]
