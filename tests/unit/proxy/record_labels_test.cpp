// SPDX-License-Identifier: MIT
#include "proxy/record_labels.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

#include "runtime/settings.h"
#include "unit/proxy/proxy_test.h"

namespace {

using testing::Contains;
using testing::Not;

// More labels than may ever be in use at a time.
constexpr int kMoreThanThePool = 6000;

// Labels of one test, all retired when it is over.
class RecordLabels : public testing::Test {
 protected:
  ~RecordLabels() override {
    for (char* label : taken_) {
      record_label_retire(label);
    }
  }

  char* Acquire(const std::string& text) {
    taken_.push_back(record_label_acquire(text.c_str()));
    return taken_.back();
  }

  std::vector<char*> taken_;
};

TEST_F(RecordLabels, ALabelIsACopyOfItsText) {
  std::string text = "My Printer.local";
  const char* label = Acquire(text);
  text[0] = 'X';
  EXPECT_STREQ(label, "My Printer.local");
}

TEST_F(RecordLabels, LabelsInUseKeepTheirTexts) {
  const char* first = Acquire("first");
  const char* second = Acquire("second");
  EXPECT_NE(first, second);
  for (int i = 0; i < kMoreThanThePool; ++i) {
    record_label_retire(record_label_acquire("other"));
  }
  EXPECT_STREQ(first, "first");
  EXPECT_STREQ(second, "second");
}

TEST_F(RecordLabels, ALongTextIsCut) { EXPECT_EQ(Acquire(std::string(5000, 'x')), std::string(kNameSize - 1, 'x')); }

TEST_F(RecordLabels, ARetiredLabelKeepsItsTextWhileOthersComeAndGo) {
  char* late = Acquire("late");
  record_label_retire(late);
  for (int i = 0; i < 200; ++i) {
    record_label_retire(Acquire("other"));
  }
  EXPECT_STREQ(late, "late");
}

TEST_F(RecordLabels, TheLongestRetiredLabelIsUsedAgainFirst) {
  std::vector<char*> order;
  for (int i = 0; i < 1000; ++i) {
    order.push_back(Acquire("one of many"));
  }
  for (char* label : order) {
    record_label_retire(label);
  }
  std::vector<char*> again;
  while (again.size() < 500) {
    char* label = Acquire("next");
    if (std::find(order.begin(), order.end(), label) != order.end()) {
      again.push_back(label);
    }
  }
  EXPECT_TRUE(std::equal(again.begin(), again.end(), order.begin()));
}

TEST_F(RecordLabels, ChurnTouchesFewLabels) {
  std::set<char*> touched;
  for (int i = 0; i < kMoreThanThePool; ++i) {
    char* label = record_label_acquire("churn");
    touched.insert(label);
    record_label_retire(label);
  }
  EXPECT_LT(touched.size(), 2000U) << "labels that tests before this one have used, and the few hundred that rest";
}

TEST_F(RecordLabels, RetiringTwiceOrNothingDoesNothing) {
  char* label = record_label_acquire("twice");
  record_label_retire(label);
  record_label_retire(label);
  record_label_retire(nullptr);
  std::set<char*> distinct;
  for (int i = 0; i < 2000; ++i) {
    distinct.insert(Acquire("distinct"));
  }
  EXPECT_EQ(distinct.size(), 2000U) << "no label is given out twice";
}

TEST_F(RecordLabels, AnExhaustedPoolTakesOverTheLabelThatIsInUseForTheLongestTime) {
  std::vector<char*> order;
  std::set<char*> distinct;
  while (distinct.insert(record_label_acquire("in use")).second) {
    order.push_back(nullptr);
  }
  const std::size_t pool = order.size();
  EXPECT_GE(pool, 2U * (static_cast<std::size_t>(gSettings.responder_limit) + 1))
      << "two for each instance that may live";
  EXPECT_LE(pool, static_cast<std::size_t>(kMoreThanThePool));
  std::set<char*> second_round;
  for (std::size_t i = 0; i + 1 < pool; ++i) {
    EXPECT_TRUE(second_round.insert(record_label_acquire("taken over")).second) << "oldest first, so each once";
  }
  char* resting = *distinct.begin();
  record_label_retire(resting);
  EXPECT_EQ(record_label_acquire("rested"), resting) << "rather than one in use";
  for (char* label : distinct) {
    record_label_retire(label);
  }
}

using LabelsOfAnInstance = ProxyTest;

TEST_F(LabelsOfAnInstance, AreGivenBackWhenItIsTakenApart) {
  BridgeContext* rule = GivenRule("_ipp._tcp");
  GivenSilence();
  char* held = record_label_acquire("held");
  for (int i = 0; i < kMoreThanThePool; ++i) {
    ASSERT_EQ(add_responder_context(rule, "My Printer"), 0);
    ResponderContext* instance = Instance("My Printer");
    instance->subtype_record_label = record_label_acquire("subtype record");
    instance->Addr_query_context =
        static_cast<struct Addr_query_context*>(zmk_malloc(sizeof(struct Addr_query_context), __FILE__, __LINE__));
    *instance->Addr_query_context = {};
    instance->Addr_query_context->record_label = record_label_acquire("address records");
    del_responder_context(rule, instance);
  }
  EXPECT_STREQ(held, "held") << "a pool that has run out takes over the label in use for the longest time";
  record_label_retire(held);
}

}  // namespace
