// SPDX-License-Identifier: MIT
// The services list: what the scanner takes, and what looks as if it should have been taken.

#include <algorithm>
#include <map>

#include "config/messages.h"
#include "config/services_scanner.h"
#include "mdnsproxy-check/library_types.h"
#include "mdnsproxy-check/service_type.h"
#include "mdnsproxy-check/source_text.h"
#include "mdnsproxy-check/verdict.h"
#include "tables/messages.h"

namespace {

constexpr std::string_view kServiceElement = "mdnsservice";
constexpr std::string_view kTypeElement = "service";

// A service as the scanner saw it.
struct SeenService {
  Stretch stretch;  // from its start phrase to its end tag
  bool broken;      // an error ended it; what it holds is not looked at
};

// One run over one file.
struct ServicesCheck {
  SourceText source;
  std::vector<Stretch> comments;
  std::vector<SeenService> services;
  std::vector<std::size_t> taken_types;           // offsets of the type phrases that the scanner took
  std::map<std::string, std::string> service_of;  // the first service of each type
  Findings& findings;
};

void warn(ServicesCheck& check, std::size_t offset, const std::string& message, const std::string& cure) {
  check.findings.push_back({Severity::warning, check.source.path, position_of(check.source, offset), message, cure, 0});
}

void fail(ServicesCheck& check, std::size_t offset, const std::string& message, const std::string& cure) {
  check.findings.push_back(
      {Severity::error, check.source.path, position_of(check.source, offset), message, cure, kServicesListStatus});
}

const char* path_of(const ServicesCheck& check) { return check.source.path.c_str(); }

// --- Reading ---------------------------------------------------------------------------------------------------------

// False: there is nothing to scan.
bool read_services(ServicesCheck& check, const std::string& path, const std::optional<Reader>& reader) {
  switch (read_source(path, reader, check.source)) {
    case ReadOutcome::ok:
      return true;
    case ReadOutcome::not_found:
      fail(check, 0, formatted(kServicesNotFound, path.c_str()),
           "create the file, or make it readable for the daemon's user");
      return false;
    case ReadOutcome::stat_invalid:
      fail(check, 0, formatted(kServicesStatInvalid, path.c_str()),
           "put at least one service into the file; it is empty");
      return false;
    case ReadOutcome::read_error:
      fail(check, 0, formatted(kServicesReadError, check.source.file_size, path.c_str()),
           "give the path of an ordinary file");
      return false;
  }
  return false;
}

// --- What the scanner takes ------------------------------------------------------------------------------------------

void warn_of_comment(ServicesCheck& check, const ServicesItem& item, const char* what) {
  if (lies_in(check.comments, item.phrase_offset)) {
    warn(check, item.phrase_offset,
         formatted("%s \"%s\" stands in a comment, but the daemon knows no comments: it counts", what, item.value),
         "delete it from the comment if it is not meant to count");
  }
}

void warn_of_empty_value(ServicesCheck& check, const ServicesItem& item) {
  const std::size_t end = item.value != nullptr ? item.value_offset : check.source.text.size();
  const std::size_t quote = find_empty_value(check.source, item.phrase_offset, end);
  if (quote == std::string::npos) {
    return;
  }
  const std::string taken =
      item.value != nullptr ? formatted("the daemon takes \"%s\" for it", item.value) : "the daemon does not see it";
  warn(check, quote, "empty value: " + taken, "write the value between the two quotes");
}

void take_service(ServicesCheck& check, ServiceCatalog& catalog, const ServicesItem& item) {
  check.services.push_back({{item.phrase_offset, check.source.text.size()}, false});
  catalog.services.push_back({item.value, {}});
  warn_of_comment(check, item, "the service");
  warn_of_empty_value(check, item);
}

void warn_of_second_service(ServicesCheck& check, const ServicesItem& item) {
  const auto [first, added] = check.service_of.emplace(item.value, item.service);
  if (!added) {
    const std::string where =
        first->second == item.service ? "listed already in this service" : "also in service \"" + first->second + "\"";
    warn(check, item.value_offset, formatted("the type \"%s\" is %s", item.value, where.c_str()),
         "keep it in one service, or do not use both services in rules between the same interfaces");
  }
}

void take_type(ServicesCheck& check, ServiceCatalog& catalog, const ServicesItem& item) {
  check.taken_types.push_back(item.phrase_offset);
  catalog.services.back().types.emplace_back(item.value);
  warn_of_comment(check, item, "the type");
  warn_of_empty_value(check, item);
  if (const std::optional<TypeFault> fault = find_type_fault(item.value)) {
    const char* outcome = library_accepts_type(item.value) ? "" : ": a rule for this service ends the daemon";
    warn(check, item.value_offset, fault->message + outcome, fault->cure);
  }
  warn_of_second_service(check, item);
}

void end_service(ServicesCheck& check, ServiceCatalog& catalog, const ServicesItem& item) {
  SeenService& seen = check.services.back();
  seen.stretch.end = item.phrase_offset;
  const NamedService service = catalog.services.back();
  const auto same_name = [&service](const NamedService& each) { return each.name == service.name; };
  if (std::any_of(catalog.services.begin(), catalog.services.end() - 1, same_name)) {
    fail(check, seen.stretch.begin, formatted(kDuplicateServiceName, service.name.c_str(), path_of(check)),
         "rename one of the two services, or put the types of both into one");
    catalog.services.pop_back();
  } else if (service.types.empty() && !seen.broken) {
    warn(check, seen.stretch.begin,
         formatted("service \"%s\" has no types: its rules forward nothing", service.name.c_str()),
         "add <service type=\"...\"/> before its </mdnsservice>");
  }
}

void take_error(ServicesCheck& check, const ServicesItem& item) {
  const std::size_t end_tag = check.source.text.find(kServiceEndTag, item.phrase_offset);
  switch (item.kind) {
    case ServicesItemKind::missing_end_tag:
      fail(check, item.phrase_offset, formatted(kServicesMissingEndTag, path_of(check)),
           "write </mdnsservice> after its last type");
      check.services.push_back({{item.phrase_offset, check.source.text.size()}, true});
      break;
    case ServicesItemKind::missing_name:
      fail(check, item.phrase_offset, formatted(kServicesMissingName, path_of(check)),
           "write its name between double quotes: name=\"...\"");
      check.services.push_back({{item.phrase_offset, std::min(end_tag, check.source.text.size())}, true});
      break;
    default:
      fail(check, item.phrase_offset, formatted(kServicesMissingType, path_of(check), item.service),
           "write the type between double quotes: type=\"_ipp._tcp\"");
      check.taken_types.push_back(item.phrase_offset);
      check.services.back().broken = true;
      break;
  }
  warn_of_empty_value(check, item);
}

void scan_services(ServicesCheck& check, ServiceCatalog& catalog) {
  std::string buffer = check.source.text;
  ServicesScanner scanner = services_scanner(buffer.data());
  for (ServicesItem item = next_item(scanner); item.kind != ServicesItemKind::end; item = next_item(scanner)) {
    switch (item.kind) {
      case ServicesItemKind::service_begins:
        take_service(check, catalog, item);
        break;
      case ServicesItemKind::type:
        take_type(check, catalog, item);
        break;
      case ServicesItemKind::service_ends:
        end_service(check, catalog, item);
        break;
      default:
        take_error(check, item);
        break;
    }
  }
}

// --- What it passes over ---------------------------------------------------------------------------------------------

const SeenService* service_around(const ServicesCheck& check, std::size_t offset) {
  for (const SeenService& each : check.services) {
    if (offset >= each.stretch.begin && offset < each.stretch.end) {
      return &each;
    }
  }
  return nullptr;
}

bool is_taken(const ServicesCheck& check, std::size_t phrase) {
  return std::find(check.taken_types.begin(), check.taken_types.end(), phrase) != check.taken_types.end();
}

// A start tag that is not written as the scanner wants it. Returns where its service ends, to be passed over with it.
std::size_t warn_of_start(ServicesCheck& check, const Tag& tag) {
  warn(check, tag.begin, "this is no start of a service to the daemon: the service is skipped with all of its types",
       "write <mdnsservice name=\"...\"> in small letters, with exactly one blank between the two words");
  const std::size_t end = check.source.text.find(kServiceEndTag, tag.begin);
  return std::min(end, check.source.text.size());
}

void warn_of_hidden_start(ServicesCheck& check, const Tag& tag) {
  warn(check, tag.begin, "a service begins inside another one, which swallows its types",
       "write </mdnsservice> before it");
}

// A type tag that the scanner did not take.
void warn_of_type(ServicesCheck& check, const Tag& tag) {
  const std::size_t phrase = check.source.text.find(kServiceTypePhrase, tag.begin);
  const bool spelt_right = phrase < tag.end;
  const SeenService* service = service_around(check, tag.begin);
  if ((spelt_right && is_taken(check, phrase)) || (service != nullptr && service->broken)) {
    return;
  }
  if (service == nullptr) {
    warn(check, tag.begin, "this type stands outside of any service and is ignored",
         "move it between <mdnsservice name=\"...\"> and </mdnsservice>");
  } else if (spelt_right) {
    warn(check, tag.begin, "this type is swallowed by a value before it whose quotes do not match",
         "close the quotes before it");
  } else {
    warn(check, tag.begin, "this is no type to the daemon and is skipped",
         "write <service type=\"...\"/> in small letters, with exactly one blank between the two words");
  }
}

void warn_of_single_quotes(ServicesCheck& check, const Tag& tag) {
  const std::size_t quote = find_single_quote(check.source, tag.begin, tag.end);
  if (quote != std::string::npos) {
    warn(check, quote, "single quotes do not delimit a value", "use double quotes");
  }
}

bool starts_service(const ServicesCheck& check, const Tag& tag) {
  return text_between(check.source, tag.begin, tag.end).find(kServiceStartPhrase) != std::string_view::npos;
}

void look_at_start(ServicesCheck& check, const Tag& tag, std::size_t& skipped_until) {
  const SeenService* service = service_around(check, tag.begin);
  if (!starts_service(check, tag)) {
    skipped_until = warn_of_start(check, tag);
  } else if (service != nullptr && !service->broken) {
    warn_of_hidden_start(check, tag);
  }
  warn_of_single_quotes(check, tag);
}

void look_at_tags(ServicesCheck& check) {
  std::size_t skipped_until = 0;
  for (const Tag& tag : tags_of(check.source)) {
    if (same_ignoring_case(tag.name, kServiceElement)) {
      look_at_start(check, tag, skipped_until);
    } else if (same_ignoring_case(tag.name, kTypeElement)) {
      if (tag.begin >= skipped_until) {
        warn_of_type(check, tag);
      }
      warn_of_single_quotes(check, tag);
    }
  }
}

}  // namespace

ServiceCatalog check_services(const std::string& path, Findings& findings, const std::optional<Reader>& reader) {
  ServicesCheck check = {{}, {}, {}, {}, {}, findings};
  ServiceCatalog catalog;
  catalog.readable = read_services(check, path, reader);
  if (!catalog.readable) {
    return catalog;
  }
  check.comments = comments_of(check.source);
  scan_services(check, catalog);
  look_at_tags(check);
  if (check.source.has_zero_byte) {
    warn(check, check.source.text.size(), "a zero byte: the daemon does not read beyond it",
         "save the file as plain text in UTF-8");
  }
  return catalog;
}
