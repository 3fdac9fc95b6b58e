#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "base/qvn_conf_file.h"
#include "support/temp_dir.h"

namespace {

std::string* g_pairs = nullptr;

/// A pair of the key "stop" ends the section.
int32_t collect(const char* key, const char* value) {
  *g_pairs += std::string(key) + "=" + value + "|";
  return std::string(key) == "stop" ? 1 : 0;
}

TEST(conf_file, a_section_is_read_pair_by_pair) {
  const std::string x251(251, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"k=1\n# [a]\n;[a]\n[A]\nk=2\n[a]\nk=3\n[b]\nk=4\n[a]\nk=5\n", "k=3|"},
      {"\r [\t a b]\n[ a\t]x\r\n\t Key \t=\r v\tw x\r\n\n", "Key=v\tw|"},
      {"[a]\n[\n#=1\n #=1\n=2\n =2\nk\nk=\nk= #\nl=;\nk=1\n[]\nk=2\n", "#=1|k=1|"},
      {"[a]\nk=a#b\nk=a;b\nk=a=b\n[b\nk=\"c d\"", "k=a|k=a|k=a=b|k=\"c|"},
      {"[a]\nk=" + x251 + "y=z\nl=1", "k=" + x251 + "|y=z|l=1|"},
      {"[b]\nk=1\nr=a.$r\n[a]\nr=b.$k\nq=b.$r\nn=b.$none\nn=.$k\nn=b.$\nn=c.$k\nstop=b.$none\n"
       "stop=1\nk=2",
       "r=1|q=a.$r|stop=1|"}};
  const support::TempDir folder("");
  std::string pairs, found;
  g_pairs = &pairs;
  const auto read = [&](const char* key, std::string& value) {
    return load_conf_helper(folder.path().c_str(), "/f", "a", collect, key, value.data(),
                            value.size());
  };
  for (const auto& [text, expected] : cases) {
    pairs.clear();
    support::write_file(folder.path() / "f", text);
    EXPECT_EQ(read("", found), 0);
    EXPECT_EQ(pairs, expected) << text;
  }
  for (const std::size_t room : {0U, 3U, 4U, 5U, 300U}) {
    found.assign(room, '#');
    std::string expected = (std::string("b.$k") + '\0').substr(0, room);
    expected.resize(room, '#');
    EXPECT_EQ(read("r", found), 0);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(read("none", found), 0);
    EXPECT_EQ(found, expected);
  }
  support::write_file(folder.path() / "f", x251 + "xyz\nk=1");
  std::string pieces;
  conf_reader reader(folder.path().c_str(), "/f");
  for (conf_line line; reader.next(line);) {
    pieces +=
        std::to_string(line.number) + (line.continued ? "-" : "") + (line.goes_on ? "+ " : " ");
  }
  EXPECT_EQ(pieces, "1+ 1- 2 ") << "of lines of 254 and 3 characters";
  std::filesystem::remove(folder.path() / "f");
  EXPECT_EQ(read("", found), -1);
}

}  // namespace
