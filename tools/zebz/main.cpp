// zebz: compresses and decompresses files with the library, on the command line.
#include <stdio.h>

#include <exception>

#include "file_tasks.h"
#include "messages.h"
#include "options.h"
#include "system/platform.h"

int main(int argc, char** argv) {
  using namespace zebz;
  try {
    const Options options = parseOptions(platform::arguments(argc, argv));
    Messages messages(options.quiet);
    FileTasks tasks(options, messages);
    for (const std::string& file : options.files) tasks.process(file);
    tasks.finish();
    return messages.exitCode();
  } catch (const EndProgram& end) {
    return end.exitCode;
  } catch (const std::exception& error) {
    fprintf(stderr, "zebz: %s\n", error.what());
    return exitError;
  }
}
