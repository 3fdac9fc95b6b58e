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

TEST_F(settings, a_bad_value_stays_stored_cut_to_its_field) {
  (void)read_cli_config("cli_listen_port", "80");
  EXPECT_EQ(g_core_ctrl->cli_listen_port, 80);
  (void)read_cli_config("cli_listen_port", "70000");
  EXPECT_EQ(g_core_ctrl->cli_listen_port, 4464);
  (void)read_cli_config("cli_listen_ip", "123.123.123.1234567");
  EXPECT_STREQ(g_core_ctrl->cli_listen_ip, "123.123.123.123");
  for (const char* const value : {"9", ""}) {
    EXPECT_EQ(read_general_config("log_level", value), 0);
    EXPECT_EQ(g_core_ctrl->log_level, 9U);
  }
}

TEST_F(settings, the_check_asks_for_a_listen_address) {
  EXPECT_EQ(qvn_check_config(), 0);
  g_core_ctrl->cli_listen_ip[0] = '\0';
  EXPECT_EQ(qvn_check_config(), -1);
}

}  // namespace
