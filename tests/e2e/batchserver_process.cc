#include "tests/e2e/batchserver_process.h"

namespace e2e {
namespace {

std::vector<std::string> BatchServerCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> words{testutil::BuildDir() + "/bin/batchserver"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

}  // namespace

BatchServerProcess::BatchServerProcess(const std::vector<std::string>& arguments, const std::string& directory,
                                       const std::string& out_path, const std::string& err_path)
    : ChildProcess(BatchServerCommand(arguments), directory, out_path, err_path) {}

BackgroundCommand::BackgroundCommand(const std::vector<std::string>& argv, const std::string& out_path)
    : ChildProcess(argv, "", out_path, out_path + ".err") {}

}  // namespace e2e
