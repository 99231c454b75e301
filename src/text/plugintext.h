#pragma once

#include <QString>

#include <optional>

// Texts of the plugin screens: counts, costs and timings as the plugin pages show them.
namespace PluginText {

// "Alive design prompt", in the current language.
QString alive();

// A token count in B/M/K steps, the same in every language; absent is "0".
QString tokens(std::optional<qint64> n);
// Dollars with more decimals the smaller the amount; absent is "—".
QString usd(std::optional<double> dollars);
// Rounded whole seconds with the unit of the current language; absent is "–".
QString seconds(std::optional<double> x);

} // namespace PluginText
