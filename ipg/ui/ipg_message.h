// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

// Every operator message goes through one handler. The default writes
// "Information: <text>" on standard error; a host installs its own modal dialog.
using Ipg_MessageHandler = std::function<void(const std::string& text, const std::string& caption)>;

// Installs handler (an empty one restores the default) and returns the previous one.
Ipg_MessageHandler Ipg_SetMessageHandler(Ipg_MessageHandler handler);

// Shows text with the given caption through the current handler, from the calling
// thread, and returns when the handler does. buttons is carried for hosts that
// draw their own dialog; the library always asks for a single OK button.
void ShowInformationMessage(const std::string& text, int buttons, const std::string& caption);

// The caption of every operator message, and the single-OK-button flag.
inline const std::string kIpgMessageCaption = "Information";
inline constexpr int kIpgOkButton = 1;

// What operators call: ShowInformationMessage(text, kIpgOkButton, "Information").
void Ipg_Inform(const std::string& text);
