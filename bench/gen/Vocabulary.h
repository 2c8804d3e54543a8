#pragma once

#include <string_view>

namespace quorin::gen {

// Names, places and products shared by the generators. Mostly ASCII with a
// realistic share of accented, Cyrillic, Greek and CJK text, so files
// exercise multi-byte UTF-8 in search, wrapping and column arithmetic.

struct Person {
  std::string_view first;
  std::string_view last;
  std::string_view login;
};

inline constexpr Person kPeople[] = {
    {"Anna", "Schmidt", "aschmidt"},
    {"James", "O'Brien", "jobrien"},
    {"Jürgen", "Müller", "jmueller"},
    {"Zoë", "Ångström", "zangstrom"},
    {"François", "Lefèvre", "flefevre"},
    {"Łukasz", "Wiśniewski", "lwisniewski"},
    {"Søren", "Kierkegaard", "skierkegaard"},
    {"José", "Álvarez", "jalvarez"},
    {"María José", "García", "mjgarcia"},
    {"Дмитрий", "Иванов", "divanov"},
    {"Ольга", "Смирнова", "osmirnova"},
    {"伟", "王", "wang.wei"},
    {"健", "佐藤", "ken.sato"},
    {"Ελένη", "Παπαδοπούλου", "epapadopoulou"},
    {"Şükrü", "Yılmaz", "syilmaz"},
    {"Björk", "Guðmundsdóttir", "bgudmundsdottir"},
    {"Emily", "Chen", "echen"},
    {"Michael", "Johnson", "mjohnson"},
    {"Sarah", "Williams", "swilliams"},
    {"David", "Brown", "dbrown"},
    {"Priya", "Patel", "ppatel"},
    {"Mohammed", "Al-Farsi", "malfarsi"},
    {"Chloé", "Dubois", "cdubois"},
    {"Mateo", "Rossi", "mrossi"},
    {"Sofia", "Bianchi", "sbianchi"},
    {"Liam", "Murphy", "lmurphy"},
    {"Noah", "Smith", "nsmith"},
    {"Olivia", "Jones", "ojones"},
    {"Lucas", "Martin", "lmartin"},
    {"Hanna", "Nowak", "hnowak"},
    {"Inês", "Ferreira", "iferreira"},
    {"Kenji", "Watanabe", "kwatanabe"},
    {"Ana", "Horvat", "ahorvat"},
    {"Thomas", "Andersson", "tandersson"},
    {"Ayşe", "Demir", "ademir"},
    {"An", "Nguyễn Văn", "nvan"},
    {"Robert", "Taylor", "rtaylor"},
    {"Laura", "Fischer", "lfischer"},
};

struct Place {
  std::string_view city;
  std::string_view country;
};

inline constexpr Place kPlaces[] = {
    {"London", "GB"},     {"New York", "US"},  {"San Francisco", "US"}, {"Berlin", "DE"},
    {"Düsseldorf", "DE"}, {"München", "DE"},   {"Zürich", "CH"},        {"Paris", "FR"},
    {"Besançon", "FR"},   {"Montréal", "CA"},  {"Toronto", "CA"},       {"São Paulo", "BR"},
    {"Kraków", "PL"},     {"Malmö", "SE"},     {"Reykjavík", "IS"},     {"Москва", "RU"},
    {"東京", "JP"},       {"Αθήνα", "GR"},     {"İstanbul", "TR"},      {"Madrid", "ES"},
    {"A Coruña", "ES"},   {"Amsterdam", "NL"}, {"Dublin", "IE"},        {"Sydney", "AU"},
    {"Singapore", "SG"},  {"Mumbai", "IN"},    {"Bogotá", "CO"},        {"Chicago", "US"},
    {"Austin", "US"},     {"Seattle", "US"},   {"Wien", "AT"},          {"København", "DK"},
};

// Some carry a double quote or a comma, which CSV has to quote and JSON to escape.
inline constexpr std::string_view kProducts[] = {
    "USB-C cable 2m",
    "Monitor 27\" 4K",
    "Office chair, ergonomic (black)",
    "Café Crème beans 1kg",
    "Kaffeemühle Deluxe",
    "Notebook A5, dotted",
    "Headphones \"Studio\"",
    "LED strip 5m",
    "Water bottle 750ml",
    "Backpack 20L",
    "Smartwatch Série 3",
    "Desk lamp",
    "Mechanical keyboard (ISO-DE)",
    "T-shirt \"Ship it\" size M",
    "Laptop stand",
    "HDMI adapter",
    "Wireless mouse",
    "Standing desk 160x80",
    "Coffee mug 350ml",
    "Phone case, clear",
};

}  // namespace quorin::gen
