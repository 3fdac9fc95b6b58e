#include <array>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>

#include "base/qvn_thread.h"

namespace {

struct seen {
  std::promise<void> done;
  int detach_state = -1;
  std::size_t stack_size = 0;
  std::string name;
};

void* look_around(void* argument) {
  const std::unique_ptr<std::shared_ptr<seen>> own(static_cast<std::shared_ptr<seen>*>(argument));
  const std::shared_ptr<seen>& result = *own;
  qvn_thread_set_name("a_name_longer_than_15");
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getdetachstate(&attributes, &result->detach_state);
  pthread_attr_getstacksize(&attributes, &result->stack_size);
  pthread_attr_destroy(&attributes);
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  result->name = name.data();
  result->done.set_value();
  return nullptr;
}

TEST(Thread, StartsDetachedWithASmallStackAndACutName) {
  const auto result = std::make_shared<seen>();
  ASSERT_EQ(create_detached_thread(look_around, new std::shared_ptr<seen>(result)), 0);
  ASSERT_EQ(result->done.get_future().wait_for(std::chrono::seconds(30)),
            std::future_status::ready);
  EXPECT_EQ(result->detach_state, PTHREAD_CREATE_DETACHED);
  EXPECT_GE(result->stack_size, kWorkerStackSize);
  EXPECT_LT(result->stack_size, 8UL * 1024 * 1024);
  EXPECT_EQ(result->name, "a_name_longer_t");
}

}  // namespace
