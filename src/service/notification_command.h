#pragma once

namespace brivasign {

// The shell command that shows the desktop notification of a request; its first word is a program
// that the shell finds by PATH.
inline constexpr const char* NOTIFICATION_COMMAND =
    "osascript -e 'display notification \"Foi enviado um pedido de PIN para o seu dispositivo.\" "
    "with title \"Quorvent\"'";

}  // namespace brivasign
