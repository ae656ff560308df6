#include "host/cli/FlagValues.h"
#include "host/cli/PluginPath.h"
#include "host/cli/TestKey.h"
#include "host/cli/TestKeyHelpers.h"

namespace corvane::host {
namespace {

constexpr const char* agentGroup = "The agent";
constexpr const char* outputGroup = "Output";

TestKey agentOptionsKey() {
  return {
      .name = "set",
      .value = "\"NAME=VALUE\"",
      .group = agentGroup,
      .help = "Sets an option of the agent ('corvane options' lists them). Give it again for further options.",
      .form = TestKeyForm::table,
      .table = "options",
      .entry = "option",
      .take = [](RunSettings& settings, const std::string& where,
                 const std::string& text) { settings.test.agentOptions.push_back(parseOptionSetting(where, text)); },
      .texts =
          [](const RunSettings& settings) {
            SettingTexts texts;
            for (const auto& [name, value] : settings.test.agentOptions) {
              texts.push_back(std::string(name).append("=").append(value));
            }
            return texts;
          }};
}

void takePlugin(RunSettings& settings, const std::string& where, const std::string& text) {
  checkNotEmpty(where, text, "an agent's library");
  settings.test.pluginPath = pluginPathFrom(text);
  settings.pluginGiven = true;
}

void takeOutput(RunSettings& settings, const std::string& where, const std::string& text) {
  checkNotEmpty(where, text, "a folder");
  const size_t end = text.find_last_not_of('/');
  settings.test.outputDirectory = end == std::string::npos ? "/" : text.substr(0, end + 1);
  settings.outputGiven = true;
}

SettingTexts outputTexts(const RunSettings& settings) {
  const std::string& folder = settings.test.outputDirectory;
  return textIf(!folder.empty() && (settings.outputGiven || folder != usualOutputDirectory), folder);
}

void takeJson(RunSettings& settings, const std::string& where, const std::string& text) {
  checkNotEmpty(where, text, "a file");
  settings.jsonPath = text;
  settings.jsonGiven = true;
}

TestKey pluginKey() {
  return {.name = "plugin",
          .value = "FILE",
          .group = agentGroup,
          .help = "The agent's library. Default: the one that comes with the program.",
          .take = takePlugin,
          .texts = [](const RunSettings& settings) { return textIf(settings.pluginGiven, settings.test.pluginPath); }};
}

TestKey outputKey() {
  return {.name = "output",
          .value = "DIR",
          .group = outputGroup,
          .help = withDefault("Folder for reports and dumps; created when it is not there.", usualOutputDirectory),
          .take = takeOutput,
          .texts = outputTexts};
}

TestKey jsonKey() {
  return {
      .name = "json",
      .value = "FILE",
      .group = outputGroup,
      .help = withDefault("The result for programs; replaced when it is there.", std::string("DIR/") + usualJsonName),
      .ofTest = false,
      .take = takeJson,
      .texts = [](const RunSettings& settings) { return textIf(settings.jsonGiven, settings.jsonPath); }};
}

TestKey eventsKey() {
  return {
      .name = "events",
      .value = "FILE",
      .group = outputGroup,
      .help = "What happens, as it happens: one JSON object a line, written at once; replaced when it is there.",
      .ofTest = false,
      .take =
          [](RunSettings& settings, const std::string& where, const std::string& text) {
            checkNotEmpty(where, text, "a file");
            settings.eventsPath = text;
          },
      .texts = [](const RunSettings& settings) { return textIf(!settings.eventsPath.empty(), settings.eventsPath); }};
}

TestKey junitKey() {
  return {.name = "junit",
          .value = "FILE",
          .group = outputGroup,
          .help = "The result for systems of continuous integration, in JUnit's XML; replaced when it is there.",
          .ofTest = false,
          .take =
              [](RunSettings& settings, const std::string& where, const std::string& text) {
                checkNotEmpty(where, text, "a file");
                settings.junitPath = text;
              },
          .texts = [](const RunSettings& settings) { return textIf(!settings.junitPath.empty(), settings.junitPath); }};
}

TestKey quietKey() {
  return {.name = "quiet",
          .value = "",
          .group = outputGroup,
          .help = "Says nothing unless something was found or failed, or the default output folder is used.",
          .form = TestKeyForm::onOff,
          .ofTest = false,
          .take = [](RunSettings& settings, const std::string& /*where*/,
                     const std::string& text) { settings.quiet = text == onText; },
          .texts = [](const RunSettings& settings) { return textIf(settings.quiet, onText); }};
}

}  // namespace

void addOutputKeys(std::vector<TestKey>& keys) {
  keys.push_back(agentOptionsKey());
  keys.push_back(pluginKey());
  keys.push_back(outputKey());
  keys.push_back(jsonKey());
  keys.push_back(eventsKey());
  keys.push_back(junitKey());
  keys.push_back(quietKey());
}

}  // namespace corvane::host
