// SPDX-License-Identifier: Apache-2.0
#include "ipg/ui/ipg_message.h"

#include <cstdio>

namespace {

void WriteToStandardError(const std::string& text, const std::string& caption)
{
  std::fprintf(stderr, "%s: %s\n", caption.c_str(), text.c_str());
  std::fflush(stderr);
}

Ipg_MessageHandler& CurrentHandler()
{
  static Ipg_MessageHandler handler = WriteToStandardError;
  return handler;
}

} // namespace

Ipg_MessageHandler Ipg_SetMessageHandler(Ipg_MessageHandler handler)
{
  Ipg_MessageHandler previous = CurrentHandler();
  CurrentHandler() = handler ? std::move(handler) : Ipg_MessageHandler(WriteToStandardError);
  return previous;
}

void ShowInformationMessage(const std::string& text, int /*buttons*/, const std::string& caption)
{
  CurrentHandler()(text, caption);
}

void Ipg_Inform(const std::string& text)
{
  ShowInformationMessage(text, kIpgOkButton, kIpgMessageCaption);
}
