#include "vcictl/DescriptionJson.h"

#include "vcictl/JsonText.h"

#include <nlohmann/json.hpp>

std::string DescriptionJson(const vcihost::Description& description) {
    nlohmann::ordered_json object{{"kind", description.kind}, {"text", description.text}};
    for (const vcihost::Field& field : description.fields) {
        std::visit([&](const auto& value) { object[field.name] = value; }, field.value);
    }
    return JsonText(object);
}
