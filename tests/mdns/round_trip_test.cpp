// SPDX-License-Identifier: MIT
// The reader gives back whatever message the writer wrote; damaged messages do no harm.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mdns/state/random.h"
#include "mdns/wire/name.h"
#include "mdns/wire/reader.h"
#include "mdns/wire/writer.h"
#include "support/seed.h"
#include "support/wire.h"

namespace mdns {
namespace {

// Random names and records, made of so few labels that names often share a suffix.
struct Maker {
  Random random;

  std::size_t below(std::size_t count) {
    return static_cast<std::size_t>(random_between(random, 0, static_cast<Time>(count) - 1));
  }

  std::string bytes(std::size_t size) {
    std::string text(size, '\0');
    for (char& each : text) {
      each = static_cast<char>(random_next(random) >> 56);
    }
    return text;
  }

  std::string name() {
    static const std::string kLabels[] = {"a", "A", "local", "_tcp", "_ipp", std::string(63, 'x')};
    std::string wire;
    for (std::size_t labels = below(6); labels > 0; --labels) {
      const std::string next = wire::label(below(8) == 0 ? bytes(1 + below(20)) : kLabels[below(6)]);
      wire += wire.size() + next.size() < kNameMax ? next : "";
    }
    return wire + '\0';
  }

  std::uint16_t type() {
    static constexpr std::uint16_t kTypes[] = {kTypeA,   kTypeAaaa,  kTypeNs, kTypeCname, kTypePtr,   kTypeDname,
                                               kTypeMx,  kTypeAfsdb, kTypeRt, kTypeKx,    kTypeSrv,   kTypeNsec,
                                               kTypeSoa, kTypeRp,    kTypePx, kTypeTxt,   kTypeHinfo, 65280};
    return kTypes[below(std::size(kTypes))];
  }

  std::string rdata(std::uint16_t type) {
    const RdataForm form = rdata_form(type);
    std::string rdata = bytes(form.head);
    for (unsigned i = 0; i < form.names; ++i) {
      rdata += name();
    }
    switch (type) {
      case kTypeA:
        return bytes(4);
      case kTypeAaaa:
        return bytes(16);
      case kTypeSoa:
        return rdata + bytes(20);
      case kTypeNsec:
        return rdata + std::string(1, '\0') + wire::label(bytes(1 + below(32)));
      case kTypeHinfo:
      case kTypeTxt:
        return wire::label(bytes(below(30))) + wire::label(bytes(below(30)));
      case 65280:
        return bytes(1 + below(40));
      default:
        return rdata;
    }
  }
};

std::string shown(const Question& question) {
  return question.name + wire::number16(question.type) + (question.unicast_response ? "QU" : "QM") +
         wire::number16(question.klass);
}

std::string shown(const Record& record) {
  return record.name + wire::number16(record.type) + wire::number16(record.klass) + (record.cache_flush ? "!" : "") +
         wire::number32(record.ttl) + record.rdata;
}

// The questions and records of a message as texts, by section.
using Sections = std::vector<std::vector<std::string>>;

Sections sections_of(const Message& message) {
  Sections sections(4);
  for (const Question& each : message.questions) {
    sections[0].push_back(shown(each));
  }
  std::size_t section = 1;
  for (const std::vector<Record>* records : {&message.answers, &message.authorities, &message.additionals}) {
    for (const Record& each : *records) {
      sections[section].push_back(shown(each));
    }
    ++section;
  }
  return sections;
}

struct Written {
  std::vector<std::uint8_t> bytes;
  Sections sections;
};

Written write_any(Maker& maker) {
  Written written{.bytes = {}, .sections = Sections(4)};
  Writer writer = writer_new(maker.below(2) == 0);
  writer.max = 200 + maker.below(4000);
  writer.compresses_srv = maker.below(4) != 0;
  for (std::size_t left = maker.below(20); left > 0; --left) {
    const Question question{.name = maker.name(), .type = maker.type(), .unicast_response = maker.below(2) == 0};
    if (writer_add_question(writer, question.name, question.type, question.unicast_response)) {
      written.sections[0].push_back(shown(question));
    }
  }
  for (const Section section : {Section::answers, Section::authorities, Section::additionals}) {
    for (std::size_t left = maker.below(30); left > 0; --left) {
      Record record{
          .name = maker.name(), .type = maker.type(), .cache_flush = maker.below(2) == 0, .ttl = 120, .rdata = {}};
      record.rdata = maker.rdata(record.type);
      constexpr std::size_t kNumbers = 10;  // type, class, TTL, length
      const bool has_room = writer.bytes.size() + record.name.size() + kNumbers + record.rdata.size() <= writer.max;
      const bool is_added =
          writer_add_record(writer, section, record.name, record.type, record.ttl, record.cache_flush, record.rdata);
      EXPECT_TRUE(is_added || !has_room) << "there was room";
      if (is_added) {
        written.sections[static_cast<std::size_t>(section)].push_back(shown(record));
      }
    }
  }
  EXPECT_TRUE(writer.bytes.size() <= writer.max || writer.counts[1] + writer.counts[2] + writer.counts[3] == 1);
  written.bytes = writer_take(writer);
  return written;
}

TEST(RoundTrip, WhatIsWrittenIsRead) {
  Maker maker;
  random_seed(maker.random, support::chosen_seed());
  for (int i = 0; i < 3000; ++i) {
    const Written written = write_any(maker);
    const std::optional<Message> message = read_message(written.bytes);
    ASSERT_TRUE(message.has_value());
    ASSERT_EQ(sections_of(*message), written.sections) << "message " << i;
  }
}

TEST(RoundTrip, WhatIsLeftOfADamagedMessageIsWellFormed) {
  Maker maker;
  random_seed(maker.random, support::chosen_seed());
  for (int i = 0; i < 10'000; ++i) {
    std::vector<std::uint8_t> bytes = write_any(maker).bytes;
    for (std::size_t changes = 1 + maker.below(4); changes > 0; --changes) {
      bytes[4 + maker.below(bytes.size() - 4)] = static_cast<std::uint8_t>(maker.below(256));
    }
    bytes.resize(bytes.size() - maker.below(bytes.size() / 2));
    bytes.shrink_to_fit();
    const std::optional<Message> message = read_message(bytes);
    if (!message) {
      continue;
    }
    for (const std::vector<Record>* records : {&message->answers, &message->authorities, &message->additionals}) {
      for (const Record& each : *records) {
        ASSERT_TRUE(is_name(each.name) && is_rdata(each.type, each.rdata) && !each.rdata.empty());
      }
    }
  }
}

}  // namespace
}  // namespace mdns
