#pragma once

/// @file
/// The name of the parser of command lines. Its own header takes a compiler several seconds and is
/// left to the sources that declare options.

namespace CLI {  // NOLINT(readability-identifier-naming): the parser's name
class App;
}
