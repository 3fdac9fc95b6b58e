#include <array>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "base/qvn_conf_file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using pair_list = std::vector<std::string>;

// The reader's handler has no argument of its own; one list a thread, for the length of one
// reading.
thread_local pair_list* read_pairs = nullptr;
thread_local std::size_t stop_after = 0;

int32_t collect(const char* key, const char* value) {
  read_pairs->push_back(std::string(key) + "=" + value);
  return read_pairs->size() == stop_after ? 1 : 0;
}

class ConfFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "conf_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern + "/";
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  void write(const std::string& text) {
    std::ofstream(directory_ + "test.conf", std::ios::binary) << text;
  }

  pair_list read(const char* section, std::size_t stop = 0) {
    pair_list pairs;
    read_pairs = &pairs;
    stop_after = stop;
    EXPECT_EQ(load_conf_helper(directory_.c_str(), "test.conf", section, collect, "", nullptr, 0),
              0);
    return pairs;
  }

  pair_list read_text(const std::string& text, const char* section = "s") {
    write(text);
    return read(section);
  }

  std::string directory_;
};

TEST_F(ConfFile, AFileThatCannotBeOpenedIsAFailure) {
  EXPECT_EQ(load_conf_helper(directory_.c_str(), "none", "s", collect, "", nullptr, 0), -1);
}

TEST_F(ConfFile, ADirectoryHoldsNothing) {
  EXPECT_EQ(load_conf_helper(directory_.c_str(), "", "s", collect, nullptr, nullptr, 0), 0);
}

TEST_F(ConfFile, APathIsCutAt255Characters) {
  const std::string padding(255 - directory_.size() - 4, '/');
  std::ofstream(directory_ + "long") << "[s]\na=1\n";
  pair_list pairs;
  read_pairs = &pairs;
  stop_after = 0;
  const std::string file = padding + "longer than that";
  EXPECT_EQ(load_conf_helper(directory_.c_str(), file.c_str(), "s", collect, "", nullptr, 0), 0);
  EXPECT_THAT(pairs, ElementsAre("a=1"));
}

TEST_F(ConfFile, KeysAndValues) {
  struct row {
    const char* line;
    const char* pair;  ///< empty: skipped
  };
  for (const row& r : {row{"key=value", "key=value"},
                       row{"key = value # note", "key=value"},
                       row{"  \t\rkey\t \r= \t\rvalue\r", "key=value"},
                       row{"key=va lue", "key=va"},
                       row{"key=va#lue", "key=va"},
                       row{"key=va;lue", "key=va"},
                       row{"key=va\t# note", "key=va\t"},
                       row{"a key=v", "a key=v"},
                       row{"k#=v", "k#=v"},
                       row{"key=a=b", "key=a=b"},
                       row{"key=]", "key=]"},
                       row{"key=\xff", "key=\xff"},
                       row{"key=#x", ""},
                       row{"key=", ""},
                       row{"key= \t", ""},
                       row{"=value", ""},
                       row{"  =value", ""},
                       row{"key", ""},
                       row{"#key=value", ""},
                       row{";key=value", ""},
                       row{" #key=value", "#key=value"},
                       row{" ;key=value", ";key=value"},
                       row{"", ""}}) {
    const pair_list pairs = read_text("[s]\n" + std::string(r.line) + "\nlast=1");
    const bool is_pair = *r.pair != '\0';
    ASSERT_EQ(pairs.size(), is_pair ? 2U : 1U) << r.line;
    EXPECT_EQ(pairs.front(), is_pair ? r.pair : "last=1");
    EXPECT_EQ(pairs.back(), "last=1") << r.line;
  }
}

TEST_F(ConfFile, SectionHeaders) {
  struct row {
    const char* header;
    bool enters;
  };
  for (const row& r : {row{"[s]", true}, row{" \t[ \r s \t\r] what follows", true},
                       row{"[s]]", true}, row{"[S]", false}, row{"[s", false}, row{"[]", false},
                       row{"[ ]", false}, row{"[[s]", false}, row{"s]", false}, row{"#[s]", false},
                       row{"[s s]", false}, row{"[\ts\v]", false}}) {
    EXPECT_EQ(read_text(std::string(r.header) + "\na=1\n").size(), r.enters ? 1U : 0U) << r.header;
  }
}

TEST_F(ConfFile, OnlyTheFirstSectionOfANameIsRead) {
  EXPECT_THAT(read_text("z=0\n[t]\na=1\n[s]\na=2\n[t]\na=3\n[s]\na=4\n"), ElementsAre("a=2"));
}

TEST_F(ConfFile, AnyHeaderEndsTheSectionButNotALineWithoutBracket) {
  EXPECT_THAT(read_text("[s]\na=1\n[]\nb=2\n"), ElementsAre("a=1"));
  EXPECT_THAT(read_text("[s]\na=1\n[s]\nb=2\n"), ElementsAre("a=1"));
  EXPECT_THAT(read_text("[s]\na=1\n[t\nb=2\n"), ElementsAre("a=1", "b=2"));
  EXPECT_THAT(read_text("[s]\na=1\n[t=3\nb=2\n"), ElementsAre("a=1", "b=2"));
}

TEST_F(ConfFile, AMissingSectionReadsNothing) {
  EXPECT_THAT(read_text("[s]\na=1\n", "t"), IsEmpty());
  EXPECT_THAT(read_text("[]\na=1\n", ""), IsEmpty());
  EXPECT_THAT(read_text(""), IsEmpty());
}

TEST_F(ConfFile, ANonZeroAnswerStopsTheReading) {
  write("[s]\na=1\nb=2\nc=3\n");
  EXPECT_THAT(read("s", 2), ElementsAre("a=1", "b=2"));
}

// Pieces of 253 characters: the second one of a 300-character line is a line of its own.
TEST_F(ConfFile, ALongLineIsReadInPieces) {
  const std::string first = "a=" + std::string(251, 'x');
  EXPECT_THAT(read_text("[s]\n" + first + "b=" + std::string(45, 'y') + "\nc=1\n"),
              ElementsAre(first, "b=" + std::string(45, 'y'), "c=1"));
  EXPECT_THAT(read_text("[s]\n" + first + "[t]\nc=1\n"), ElementsAre(first));
}

TEST_F(ConfFile, ALineEndsAtANul) {
  using namespace std::string_literals;
  EXPECT_THAT(read_text("[s]\na=1\0z\nb\0=2\n\0c=3\nd=4\n"s), ElementsAre("a=1", "d=4"));
}

TEST_F(ConfFile, References) {
  struct row {
    const char* value;
    const char* resolved;  ///< empty: the line is skipped
  };
  for (const row& r :
       {row{"t.$a", "1"}, row{"s.$first", "f"}, row{"t.$ref", "t.$a"}, row{"t.$a.$b", "dotted"},
        row{"t.$none", ""}, row{"none.$a", ""}, row{".$a", ""}, row{"t.$", ""}, row{"T.$a", ""},
        row{"t.$A", ""}, row{"t.a$", "t.a$"}}) {
    const pair_list pairs = read_text("[s]\nfirst=f\nkey=" + std::string(r.value) +
                                      "\n[t]\na=1\nref=t.$a\na.$b=dotted\n[none2]\n");
    const bool is_pair = *r.resolved != '\0';
    ASSERT_EQ(pairs.size(), is_pair ? 2U : 1U) << r.value;
    EXPECT_EQ(pairs.back(), is_pair ? "key=" + std::string(r.resolved) : "first=f") << r.value;
  }
}

TEST_F(ConfFile, TheLongestReferencedValueArrivesWhole) {
  const std::string value(249, 'v');
  EXPECT_THAT(read_text("[s]\nk=t.$a\n[t]\na=" + value + "\n"), ElementsAre("k=" + value));
}

TEST_F(ConfFile, LookupCopiesABoundedValueAndCallsNobody) {
  struct row {
    const char* section;
    const char* key;
    std::size_t length;
    const char* output;  ///< of a buffer full of "#"
  };
  write("[s]\nabc=1\nab=value\nab=again\nref=s.$abc\n[t]\nx=y\n");
  for (const row& r :
       {row{"s", "ab", 7, "value"}, row{"s", "ab", 6, "value"}, row{"s", "ab", 5, "value##"},
        row{"s", "ab", 3, "val####"}, row{"s", "ab", 0, "#######"}, row{"s", "ref", 7, "s.$abc"},
        row{"s", "Ab", 7, "#######"}, row{"s", "x", 7, "#######"}, row{"u", "ab", 7, "#######"}}) {
    std::array<char, 8> output{"#######"};
    EXPECT_EQ(load_conf_helper(directory_.c_str(), "test.conf", r.section, nullptr, r.key,
                               output.data(), r.length),
              0);
    EXPECT_STREQ(output.data(), r.output) << r.key << " " << r.length;
  }
}

}  // namespace
