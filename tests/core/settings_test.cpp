#include <gtest/gtest.h>

#include "core/qvn_core_ctrl.h"
#include "core/qvn_settings.h"

namespace {

class settings : public testing::Test {
 protected:
  settings() {
    g_core_ctrl = new qvn_core_ctrl;
    g_core_ctrl->log_level = 7;
    EXPECT_EQ(qvn_default_conf_init(), 0);
  }
  ~settings() override {
    delete g_core_ctrl;
    g_core_ctrl = nullptr;
  }
};

struct key_case {
  const char* key;
  const char* value;
  int32_t result;
};

TEST_F(settings, a_bad_number_stops_the_section_and_a_good_one_does_not) {
  constexpr key_case kCases[] = {
      {"cli_listen_port", "1024", 0},
      {"CLI_Listen_Port", "65534", 0},
      {"cli_listen_port", "1023", -1},
      {"cli_listen_port", "65535", -1},
      {"cli_listen_port", "70000", 0},
      {"cli_listen_port", "x", -1},
      {"cli_connection_expires", "10", 0},
      {"cli_connection_expires", "9", -1},
      {"cli_connection_expires", "3600", 0},
      {"cli_connection_expires", "3601", -1},
      {"cli_connection_limit", "1", 0},
      {"cli_connection_limit", "0", -1},
      {"cli_connection_limit", "1000", 0},
      {"cli_connection_limit", "1001", -1},
      {"cli_listen_ip", "", -1},
      {"cli_login_user", nullptr, -1},
      {"cli_login_pwd", "", -1},
      {"unknown", "x", 0},
  };
  for (const key_case& test : kCases) {
    EXPECT_EQ(read_cli_config(test.key, test.value), test.result)
        << test.key << "=" << (test.value ? test.value : "absent");
  }
}

TEST_F(settings, a_bad_value_stays_stored_cut_to_its_field) {
  (void)read_cli_config("cli_listen_port", "80");
  EXPECT_EQ(g_core_ctrl->cli_listen_port, 80);
  (void)read_cli_config("cli_listen_port", "70000");
  EXPECT_EQ(g_core_ctrl->cli_listen_port, 4464);
  (void)read_cli_config("cli_listen_ip", "123.123.123.1234567");
  EXPECT_STREQ(g_core_ctrl->cli_listen_ip, "123.123.123.123");
  EXPECT_EQ(read_general_config("log_level", "9"), 0);
  EXPECT_EQ(g_core_ctrl->log_level, 9U);
  EXPECT_EQ(read_general_config("log_level", ""), 0);
  EXPECT_EQ(g_core_ctrl->log_level, 9U);
}

TEST_F(settings, log_size_is_multiplied_in_32_bits_before_it_is_tested) {
  constexpr key_case kCases[] = {{"max_log_size", "1", 0},       {"max_log_size", "0", -1},
                                 {"max_log_size", "1048576", 0}, {"max_log_size", "1048577", -1},
                                 {"max_log_size", "4194305", 0}, {"max_log_size", "", -1},
                                 {"max_log_size", nullptr, 0},   {"other", "1", 0}};
  for (const key_case& test : kCases) {
    EXPECT_EQ(read_general_config(test.key, test.value), test.result)
        << test.key << "=" << (test.value ? test.value : "absent");
  }
  EXPECT_EQ(g_core_ctrl->max_log_size, 1024U) << "4194305 KB wraps to one";
}

TEST_F(settings, the_check_asks_for_a_listen_address) {
  EXPECT_EQ(qvn_check_config(), 0);
  g_core_ctrl->cli_listen_ip[0] = '\0';
  EXPECT_EQ(qvn_check_config(), -1);
}

}  // namespace
