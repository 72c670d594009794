#include "MIMEType.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <utility>

namespace zem::host {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 20> types{{
    {".avif", "image/avif"},       {".css", "text/css"},        {".csv", "text/csv"},
    {".gif", "image/gif"},         {".heic", "image/heic"},     {".html", "text/html"},
    {".jpeg", "image/jpeg"},       {".jpg", "image/jpeg"},      {".js", "text/javascript"},
    {".json", "application/json"}, {".md", "text/markdown"},    {".mov", "video/quicktime"},
    {".mp3", "audio/mpeg"},        {".mp4", "video/mp4"},       {".pdf", "application/pdf"},
    {".png", "image/png"},         {".svg", "image/svg+xml"},   {".txt", "text/plain"},
    {".webp", "image/webp"},       {".zip", "application/zip"},
}};

bool isGraphic(char character) {
    return std::isgraph(static_cast<unsigned char>(character)) != 0;
}

} // namespace

std::string guessMIMEType(const std::string& fileName) {
    std::string extension = std::filesystem::path(fileName).extension();
    std::ranges::transform(extension, extension.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    const auto* const found =
        std::ranges::find(types, extension, &decltype(types)::value_type::first);
    return std::string(found == types.end() ? "application/octet-stream" : found->second);
}

bool isMIMEType(const std::string& text) {
    const std::string type = text.substr(0, text.find(';'));
    const std::size_t slash = type.find('/');
    return slash != std::string::npos && slash > 0 && slash + 1 < type.size() &&
           std::ranges::all_of(type, isGraphic) &&
           std::ranges::all_of(text, [](char c) { return c == ' ' || isGraphic(c); });
}

} // namespace zem::host
