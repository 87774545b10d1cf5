#include "tools/cli/arguments.h"

namespace cli {

void OptionValue::refuse(const std::string& what) const {
  throw UsageError(option + " needs " + what + ", got '" + text + "'");
}

const std::string& OptionValue::non_empty(const std::string& what) const {
  if (text.empty()) throw UsageError(option + " needs " + what);
  return text;
}

Take store_text(std::string& target, const std::string& what) {
  return [&target, what](const OptionValue& v) { target = v.non_empty(what); };
}

CommandLine parse_command_line(const std::vector<std::string>& args, const std::vector<Option>& options,
                               bool files_behind_dashes) {
  CommandLine line;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--" && files_behind_dashes) {
      line.dashes = true;
      line.files.assign(args.begin() + static_cast<long>(i) + 1, args.end());
      break;
    }
    if (arg.size() < 2 || arg[0] != '-') {
      line.words.push_back(arg);
      continue;
    }
    const std::size_t eq = arg.rfind("--", 0) == 0 ? arg.find('=') : std::string::npos;
    OptionValue value{arg.substr(0, eq), ""};
    const Option* option = nullptr;
    for (const Option& o : options)
      if (value.option == o.name || (!o.alias.empty() && value.option == o.alias)) option = &o;
    if (option == nullptr) throw UsageError("unknown option '" + arg + "'");
    if (option->flag) {
      if (eq != std::string::npos) throw UsageError("option " + value.option + " takes no value");
    } else if (eq != std::string::npos) {
      value.text = arg.substr(eq + 1);
    } else {
      if (i + 1 == args.size()) throw UsageError("option " + value.option + " needs a value");
      value.text = args[++i];
    }
    option->take(value);
  }
  return line;
}

void expect_no_words(const CommandLine& line, const std::string& hint) {
  if (!line.words.empty()) throw UsageError("unexpected argument '" + line.words.front() + "'" + hint);
}

}  // namespace cli
