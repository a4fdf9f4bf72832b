#pragma once

#include <string>

// Where long operations report their progress. The host installs a sink that
// draws its progress window; without one, progress is silent.
class Ipg_ProgressSink {
public:
  virtual ~Ipg_ProgressSink() = default;
  virtual void Open(const std::string& label, int maximum) = 0;
  virtual void Step(const std::string& status) = 0;
  virtual void Close() = 0;
};

// Installs sink (null: none) and returns the previous one. The sink is not owned.
Ipg_ProgressSink* Ipg_SetProgressSink(Ipg_ProgressSink* sink);
Ipg_ProgressSink* Ipg_GetProgressSink();

// Opens the current sink on construction and closes it on destruction, so a
// progress window never stays open after an operation returns.
class Ipg_Progress {
public:
  Ipg_Progress(const std::string& label, int maximum);
  ~Ipg_Progress();
  Ipg_Progress(const Ipg_Progress&) = delete;
  Ipg_Progress& operator=(const Ipg_Progress&) = delete;

  void Step(const std::string& status = std::string());

private:
  Ipg_ProgressSink* Sink;
};
