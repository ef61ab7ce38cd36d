#include "json.h"

#include <nlohmann/json.hpp>

#include "device.h"

namespace {

using device::Control;
using device::Facts;
using device::Family;
using device::Kind;
using Json = nlohmann::ordered_json;

// A number as the family's values are: truth, name, or number.
Json numberAsJson(const Family& family, int value) {
  if (family.facts().type == DATA_TYPE_BOOL) {
    return value != 0;
  }
  if (family.facts().kind == Kind::CHOICE) {
    device::LineOf<64> name;
    writeNumber(family, value, name);
    return name.text();
  }
  return value;
}

Json valueOf(const Control& control) {
  if (control.family->facts().type != DATA_TYPE_STRING) {
    return numberAsJson(*control.family, controls.get(control));
  }
  char text[1024];  // the longest text
  controls.get(control, text, sizeof text);
  return text;
}

Json confirmedOf(const Control& control) {
  const char* const text = control.family->text(control.member);
  return text != nullptr ? Json(text)
                         : numberAsJson(*control.family, *control.family->number(control.member));
}

Json memberAsJson(const Control& control) {
  device::LineOf<64> name;
  writeName(control, name);
  Json json = {{"name", name.text()}, {"index", control.index()}};
  if (control.family->facts().kind != Kind::COMMAND) {
    json["value"] = valueOf(control);
  }
  if (control.family->isSetting() && confirmedOf(control) != json["value"]) {
    json["confirmed"] = confirmedOf(control);
  }
  return json;
}

Json factsAsJson(const Family& family) {
  const Facts& f = family.facts();
  Json json = {{"name", f.name}, {"id", f.id}, {"kind", kindName(f.kind)}, {"help", f.help}};
  if (*f.unit != 0) {
    json["unit"] = f.unit;
  }
  for (unsigned int i = 0; i < f.ndim; ++i) {
    json["dimensions"].push_back(f.dim[i]);
  }
  for (unsigned int i = 0; valueName(family, i) != nullptr && f.kind == Kind::CHOICE; ++i) {
    json["values"].push_back(valueName(family, i));
  }
  if (f.kind == Kind::TEXT) {
    json["length"] = f.textSize - 1;
  }
  const bool named = valueName(family, 0) != nullptr;
  for (unsigned int i = 0; !named && i < calcNumBounds(f.bounds); ++i) {
    json["bounds"].push_back({f.bounds[i].min, f.bounds[i].max});  // of a text: its characters
  }
  return json;
}

}  // namespace

std::vector<std::string> toJson(const std::vector<device::Selection>& parts) {
  std::vector<std::string> lines = {"["};
  for (const device::Selection& part : parts) {
    Json json = factsAsJson(*part.family);
    for (unsigned int i = 0; i < part.count; ++i) {
      json["controls"].push_back(memberAsJson(part.control(i)));
    }
    const char* const behind = &part == &parts.back() ? "" : ",";
    // A text may hold bytes that are no UTF-8.
    lines.push_back(json.dump(-1, ' ', true, Json::error_handler_t::replace) + behind);
  }
  lines.push_back("]");
  return lines;
}
