#include "quillon/cli/config_command.h"

#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quillon/base/report.h"
#include "quillon/base/shell_word.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "workstation/config_store.h"

namespace quillon::cli {
namespace {

using workstation::ConfigEntry;
using workstation::ConfigValue;

struct ConfigRequest {
  std::filesystem::path device;
  std::string key;
  std::string value;
  bool asString = false;
  bool asInt = false;
  bool json = false;
};

// Accepts the canonical spelling only: "007" stays a string.
std::optional<int> decimal(const std::string& text) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || std::to_string(number) != text) {
    return std::nullopt;
  }
  return number;
}

ConfigValue typedValue(const ConfigRequest& request) {
  const auto number = request.asString ? std::nullopt : decimal(request.value);
  if (number) {
    return *number;
  }
  if (request.asInt) {
    endCommand(report({"'" + request.value + "' is not a 32-bit decimal number",
                       "omit --int to set a string", kUsage}));
  }
  return request.value;
}

// Handles values that begin with a dash, which the parser takes for options. Negative numbers are
// accepted as they are; other values must follow "--".
void addDashedValue(ConfigRequest& request, const std::vector<std::string>& unknown) {
  std::vector<std::string> values;
  if (!request.value.empty()) {
    values.push_back(request.value);
  }
  values.insert(values.end(), unknown.begin(), unknown.end());
  values.insert(values.end(), programArguments().begin(), programArguments().end());
  const bool isNumber = unknown.empty() || decimal(unknown[0]);
  if (values.size() != 1 || !isNumber) {
    const bool isDashed = !values.empty() && values.back().starts_with('-');
    endCommand(report(
        {values.empty() ? "config set needs a VALUE"
                        : "config set does not know '" + values.back() + "'",
         isDashed ? "write a value that begins with '-' after --" : "see quillon config set --help",
         kUsage}));
  }
  request.value = values[0];
}

void print(const ConfigValue& value) {
  std::visit([](const auto& plain) { std::cout << plain << std::endl; }, value);
}

Failure noValue(const std::string& key) {
  if (auto obstacle = workstation::obstacleOf(key)) {
    return withStatus(kNoKey, *std::move(obstacle));
  }
  return {"the configuration key '" + key + "' has no value",
          "set it: quillon config set " + shellWord(key) + " VALUE", kNoKey};
}

void get(const ConfigRequest& request) {
  enterDevice(request.device);
  const auto value = valueOf(workstation::getConfig(request.key));
  if (!value) {
    endCommand(report(noValue(request.key)));
  }
  print(*value);
}

void unset(const ConfigRequest& request) {
  enterDevice(request.device);
  if (!valueOf(workstation::unsetConfig(request.key))) {
    const Failure none = noValue(request.key);
    endCommand(report({none.what, "list the keys: quillon config list", none.status}));
  }
}

const char* typeOf(const ConfigValue& value) {
  return std::holds_alternative<int>(value) ? "int" : "string";
}

Json toJson(const std::vector<ConfigEntry>& entries) {
  Json all = Json::array();
  for (const auto& [key, value] : entries) {
    const Json plain = std::visit([](const auto& content) { return Json(content); }, value);
    all.push_back({{"key", key}, {"type", typeOf(value)}, {"value", plain}});
  }
  return all;
}

void list(const ConfigRequest& request) {
  enterDevice(request.device);
  const auto entries = valueOf(workstation::listConfig(request.key));
  if (request.json) {
    return printJson(toJson(entries));
  }
  for (const auto& [key, value] : entries) {
    const int* const number = std::get_if<int>(&value);
    const std::string text =
        number != nullptr ? std::to_string(*number) : std::get<std::string>(value);
    std::cout << oneLine(key + ' ' + typeOf(value) + ' ' + text) << '\n';
  }
}

void set(const ConfigRequest& request) {
  const ConfigValue value = typedValue(request);
  enterDevice(request.device);
  valueOf(workstation::setConfig(request.key, value));
}

void watch(const ConfigRequest& request) {
  enterDevice(request.device);
  const auto untilOutputFails = [](const ConfigValue& value) {
    print(value);
    return static_cast<bool>(std::cout);
  };
  valueOf(workstation::watchConfig(request.key, untilOutputFails));
}

CLI::App* addAction(CLI::App& config, const std::string& name, const std::string& help,
                    const std::shared_ptr<ConfigRequest>& request,
                    void (*run)(const ConfigRequest&)) {
  CLI::App* action = config.add_subcommand(name, help);
  addDeviceOption(*action, request->device);
  action->add_option("KEY", request->key, "Key, such as db/dotnet/velora_api_path")->required();
  action->callback([request, run] { run(*request); });
  return action;
}

void addList(CLI::App& config, const std::shared_ptr<ConfigRequest>& request) {
  CLI::App* action = config.add_subcommand("list", "List the keys with their types and values");
  addDeviceOption(*action, request->device);
  action->add_option("GROUP", request->key, "Only keys below it, for example db/dotnet");
  action->add_flag(kJsonFlag, request->json, kJsonHelp);
  action->callback([request] { list(*request); });
}

void addSet(CLI::App& config, const std::shared_ptr<ConfigRequest>& request) {
  CLI::App* action = addAction(config, "set", "Set a key", request, set);
  action->allow_extras();
  CLI::Option* value =
      action->add_option("VALUE", request->value, "Value; a decimal number is set as int");
  CLI::Option* asString = action->add_flag("--string", request->asString, "Set as string");
  action->add_flag("--int", request->asInt, "Set as int, or fail")->excludes(asString);
  action->callback([request, action, value] {
    const auto unknown = action->remaining();
    if (value->empty() || !unknown.empty()) {
      addDashedValue(*request, unknown);
    }
    set(*request);
  });
}

}  // namespace

void addConfigCommand(CLI::App& app) {
  CLI::App* config = app.add_subcommand("config", "Read, set, list and watch configuration keys");
  config->require_subcommand(1);
  auto request = std::make_shared<ConfigRequest>();
  addAction(*config, "get", "Print a key's value", request, get);
  addSet(*config, request);
  addAction(*config, "unset", "Remove a key", request, unset);
  addList(*config, request);
  addAction(*config, "watch", "Print a key's value, now and after each change", request, watch);
}

}  // namespace quillon::cli
