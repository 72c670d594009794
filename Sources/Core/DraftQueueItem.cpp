#include <zem/Core/DraftQueueItem.h>
#include <zem/Tessel/JSON.h>

namespace zem {

std::optional<std::string> DraftQueueItem::targetApiName() const {
    if (!metadata) {
        return std::nullopt;
    }
    const auto found = metadata->find("ZEM_ACTION_METADATA_API_NAME");
    return found == metadata->end() ? std::nullopt : std::optional(found->second);
}

std::vector<Dictionary> DraftQueueItemError::body() const {
    if (!bodyString) {
        return {};
    }
    tessel::Decoded<tessel::Any> parsed = tessel::parse(*bodyString);
    if (!parsed || !parsed->is_array()) {
        return {};
    }
    std::vector<Dictionary> objects;
    for (tessel::Any& element : parsed->get_array()) {
        if (!element.is_object()) {
            return {};
        }
        objects.push_back(std::move(element.get_object()));
    }
    return objects;
}

} // namespace zem
