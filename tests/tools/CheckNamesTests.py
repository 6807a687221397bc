import os
import subprocess
import sys

from support import CommandTestCase

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts/check-names")


class CheckNamesTests(CommandTestCase):
    def check(self, declarations, kind="class"):
        """The complaints about the public section of an exported class."""
        header = self.write("KXThing.h", f"""#pragma once

/// A thing.
{kind} KX_EXPORT KXThing final : public KXObject {{
public:
{declarations}
private:
    void notLookedAt(int value);
}};
""".encode())
        result = subprocess.run([sys.executable, "-B", SCRIPT, header], stderr=subprocess.PIPE)
        complaints = result.stderr.decode().splitlines()
        self.assertEqual(result.returncode, 1 if complaints else 0)
        return complaints

    def assert_good(self, declarations):
        self.assertEqual(self.check(declarations), [])

    def assert_bad(self, declarations, complaint):
        [found] = self.check(declarations)
        self.assertIn(complaint, found)

    def test_labels_with_small_words_are_kept(self):
        self.assert_good("/// `setMetadata:forKey:` Keeps it.\nvoid setMetadataForKey(int a, int b);")
        self.assert_bad("/// `setMetadata:forKey:` Keeps it.\nvoid setMetadata(int a, int b);",
                        "setMetadataForKey")

    def test_other_labels_are_dropped(self):
        self.assert_good("/// `readUInt32To:swap:` Reads.\nbool readUInt32To(int& a, Swap b) { return f(a); }")
        self.assert_bad("/// `readUInt32To:swap:` Reads.\nbool readUInt32ToSwap(int& a, Swap b);",
                        "should be named readUInt32To after")

    def test_small_word_must_be_a_whole_word(self):
        self.assert_good("/// `open:format:` Opens.\nvoid open(int a, int b);")
        self.assert_bad("/// `open:format:` Opens.\nvoid openFormat(int a, int b);", "named open ")

    def test_name_of_another_phrase(self):
        self.assert_bad("/// `offset` Position.\nint position() const { return _position; }", "named offset")

    def test_missing_doc_comment(self):
        self.assert_bad("int offset() const;", "KXThing::offset has no doc comment")
        self.assert_bad("static std::function<void(int)> handler(int a = f(1));", "no doc comment")

    def test_doc_comment_without_phrase(self):
        self.assert_bad("/// The position.\nint offset() const;", "does not begin with its phrase")
        self.assert_bad("/// The `offset` position.\nint offset() const;", "does not begin")

    def test_count_of_parameters(self):
        self.assert_bad("/// `setOffset:` Sets it.\nvoid setOffset();", "0 parameters")
        self.assert_good("/// `map:` Maps.\nvoid map(std::map<int, int> const& a);")

    def test_collision_keeps_the_label_of_the_longer(self):
        exactly = "/// `readBytesTo:length:` All.\nbool readBytesTo(int* a, int b);\n"
        at_most = "/// `readBytesTo:maxLength:` Some.\nint readBytesToMaxLength(int* a, int b);"
        self.assert_good(exactly + at_most)
        self.assert_bad(at_most, "named readBytesTo ")
        self.assert_bad(at_most + "\n" + exactly.replace("readBytesTo(", "readBytesToLength("),
                        "readBytesToLength should be named readBytesTo ")

    def test_init(self):
        self.assert_good("/// `init` A new one.\nKXThing();\nexplicit KXThing(int a);")
        self.assert_good("/// `initWithPath:` Opens it.\nstatic Ref createWithPath(int a);")
        self.assert_bad("/// `initWithPath:` Opens it.\nstatic Ref initWithPath(int a);", "createWithPath")
        self.assert_bad("/// `thing` A new one.\nKXThing();", "constructor")

    def test_word_of_the_language_gains_its_object(self):
        self.assert_good("/// `delete:` Deletes.\nvoid deleteFile(int a);")
        self.assert_bad("/// `delete:` Deletes.\nvoid removeFile(int a);", "named delete")

    def test_overrides_and_operators_may_go_without(self):
        self.assert_good("int offset() const override;\nbool operator==(KXThing const& a) const;\n"
                         "~KXThing() override;\nKXThing(KXThing const&) = delete;")

    def test_structs_are_public_from_the_start(self):
        self.assertEqual(len(self.check("int offset();", kind="struct")), 1)

    def test_bodies_and_values_are_passed_over(self):
        self.assert_good("explicit KXThing(int a)\n    : _a { a }\n    , _b(a)\n{\n    call(a);\n}\n"
                         "/// `offset` Position.\nint offset() const\n{\n    if (_a) { return f(1); }\n"
                         "    return 0;\n}\nstatic constexpr int limit { 3 };\nint member = f(3);\n"
                         "enum Kind { first, second };\nusing Handler = std::function<void(int)>;\n"
                         "struct Part {\n    int size();\n};")

    def test_free_functions(self):
        header = self.write("KXFree.h", b"/// `nameForKey:size:` A name.\nKX_EXPORT int nameForKey(int a, int b);\n"
                                        b"/// `path:` A path.\nKX_EXPORT int KXPath(int a);\nint helper();\n")
        result = subprocess.run([sys.executable, "-B", SCRIPT, header], stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(len(result.stderr.splitlines()), 1)
        self.assertIn(b"KXFree.h:2: nameForKey should be named KXNameForKey ", result.stderr)

    def test_installed_headers_are_all_read(self):
        listed = subprocess.run([sys.executable, "-B", SCRIPT, "--list"], stdout=subprocess.PIPE, check=True)
        lines = listed.stdout.decode().splitlines()
        self.assertIn("KXAbstractData.h: KXAbstractData::readBytesToMaxLength readBytesTo:maxLength:", lines)
        self.assertIn("KXLog.h: KXLog KXLog", lines)
        self.assertFalse([line for line in lines if "bytesAt" in line])  # Private.
