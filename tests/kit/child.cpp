#include "kit/child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace kit {

static void WriteAll(int target, const std::string& text) {
  for (size_t written = 0; written < text.size();) {
    const ssize_t bytes = write(target, text.data() + written, text.size() - written);
    if (bytes <= 0) return;
    written += static_cast<size_t>(bytes);
  }
}

static std::string ReadAll(int source) {
  std::string text;
  char buffer[4096];
  for (ssize_t bytes; (bytes = read(source, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<size_t>(bytes));
  return text;
}

std::string InChild(const std::function<std::string()>& work) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) return "no child";
  if (child == 0) {
    close(ends[0]);
    WriteAll(ends[1], work());
    std::fflush(nullptr);
    _exit(0);
  }
  close(ends[1]);
  std::string text = ReadAll(ends[0]);
  close(ends[0]);
  int ending = 0;
  waitpid(child, &ending, 0);
  if (WIFSIGNALED(ending)) return "crashed by signal " + std::to_string(WTERMSIG(ending)) + "\n" + text;
  if (WEXITSTATUS(ending) != 0)
    return "crashed, exit code " + std::to_string(WEXITSTATUS(ending)) + "\n" + text;
  return text;
}

}  // namespace kit
