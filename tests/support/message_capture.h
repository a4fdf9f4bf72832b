// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/ui/ipg_message.h"

#include <string>
#include <vector>

// Records every operator message for the lifetime of the object, then restores
// the previous handler.
class MessageCapture {
public:
  MessageCapture()
  {
    Previous = Ipg_SetMessageHandler([this](const std::string& text, const std::string& caption) {
      Texts.push_back(text);
      Captions.push_back(caption);
    });
  }
  ~MessageCapture() { Ipg_SetMessageHandler(Previous); }
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

  std::vector<std::string> Texts;
  std::vector<std::string> Captions;

private:
  Ipg_MessageHandler Previous;
};
