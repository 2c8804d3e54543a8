#include "gen/CsvGenerator.h"

#include <string_view>

#include "gen/Format.h"
#include "gen/Vocabulary.h"

namespace quorin::gen {
namespace {

constexpr std::string_view kHeader =
    "order_id,created_at,customer,email,country,city,product,quantity,unit_price,total,status,note\n";

constexpr std::string_view kStatuses[] = {"shipped", "shipped", "shipped",   "delivered", "delivered",
                                          "paid",    "pending", "cancelled", "refunded"};
constexpr std::string_view kDomains[] = {"example.com", "mail.example.org", "firma.example.de",
                                         "correo.example.es"};

// Free text as customers type it: commas, quotes, and once in a while a line break.
constexpr std::string_view kNotes[] = {
    "Leave at the door",
    "Please ring twice, the bell is broken",
    "Gift wrap, no invoice in the parcel",
    "Customer says \"urgent\"",
    "Lieferung bitte an die Nachbarin (Frau Köhler)",
    "Livraison après 18h, merci",
    "Call before delivery: +44 20 7946 0958",
    "Reorder, same address as last time",
};
constexpr std::string_view kMultiLineNotes[] = {
    "Deliver to the back entrance.\nGate code 4711",
    "Parcel arrived damaged\nReplacement sent, see ticket 88231",
};

bool needsQuotes(std::string_view field) { return field.find_first_of(",\"\r\n") != std::string_view::npos; }

void appendField(std::string& out, std::string_view field) {
  if (!needsQuotes(field)) {
    out.append(field);
    return;
  }
  out.push_back('"');
  for (const char c : field) {
    if (c == '"') out.push_back('"');
    out.push_back(c);
  }
  out.push_back('"');
}

// "First Last", or "Last, First" as many exports write it, which has to be quoted.
void appendCustomer(std::string& out, const Person& person, bool lastFirst) {
  if (!lastFirst) {
    out.append(person.first);
    out.push_back(' ');
    out.append(person.last);
    return;
  }
  out.push_back('"');
  out.append(person.last);
  out.append(", ");
  out.append(person.first);
  out.push_back('"');
}

}  // namespace

CsvGenerator::CsvGenerator(uint64_t seed)
    : rng_(seed),
      orderId_(100'000 + rng_.below(900'000)),
      clockMs_(daysFromCivil(2025, 1, 1) * 86'400'000 + rng_.below(86'400'000)) {}

void CsvGenerator::appendRecord(std::string& out) {
  if (headerWritten_) return appendRow(out);
  out.append(kHeader);
  headerWritten_ = true;
}

void CsvGenerator::appendRow(std::string& out) {
  orderId_ += rng_.between(1, 3);
  clockMs_ += rng_.between(0, 90'000);
  const Person& person = rng_.pick(kPeople);
  const Place& place = rng_.pick(kPlaces);
  const int64_t quantity = rng_.chance(1, 20) ? rng_.between(10, 250) : rng_.between(1, 5);
  const int64_t unitCents = rng_.between(199, 49'999);

  appendInt(out, orderId_);
  out.push_back(',');
  appendIsoMillis(out, clockMs_);
  out.push_back(',');
  appendCustomer(out, person, rng_.chance(2, 5));
  out.push_back(',');
  if (!rng_.chance(3, 100)) {
    out.append(person.login);
    out.push_back('@');
    out.append(rng_.pick(kDomains));
  }
  out.push_back(',');
  out.append(place.country);
  out.push_back(',');
  appendField(out, place.city);
  out.push_back(',');
  appendField(out, rng_.pick(kProducts));
  out.push_back(',');
  appendInt(out, quantity);
  out.push_back(',');
  appendFixed(out, unitCents, 2);
  out.push_back(',');
  appendFixed(out, quantity * unitCents, 2);
  out.push_back(',');
  out.append(rng_.pick(kStatuses));
  out.push_back(',');
  if (rng_.chance(1, 400))
    appendField(out, rng_.pick(kMultiLineNotes));
  else if (rng_.chance(1, 4))
    appendField(out, rng_.pick(kNotes));
  out.push_back('\n');
}

}  // namespace quorin::gen
