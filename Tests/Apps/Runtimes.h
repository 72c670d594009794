#pragma once

// Bundles that set a runtime.

#include <string>

namespace test {

/// `dataService`, which says what it is asked. An invocation of the adapter "later" is answered a
/// little later, one of "never" not at all, one of "bad" with an error; a subscription to "silent"
/// emits nothing, one to "twice" a second time a little later.
inline const std::string dataService = R"(
    const show = (...values) => console.log(JSON.stringify(values));
    const dataService = {
        invokeAdapter(id, config, callback, context) {
            show('invokeAdapter', id, config, context ?? 'no context');
            if (id === 'never') return;
            if (id === 'later') setTimeout(() => callback({ data: { late: true } }), 5);
            else callback(id === 'bad' ? { error: 'boom' } : { data: { id } });
        },
        invokeAdapterWithMetadata(id, config, metadata, callback) {
            show('invokeAdapterWithMetadata', id, config, metadata);
            callback({ data: {} });
        },
        invokeAdapterWithDraftToReplace(id, config, draft, callback) {
            show('invokeAdapterWithDraftToReplace', id, config, draft);
            callback({ data: {} });
        },
        subscribeToAdapter(id, config, callback, context) {
            show('subscribeToAdapter', id, config, context ?? 'no context');
            if (id === 'bad') callback({ error: 'boom' });
            else if (id !== 'silent') callback({ data: { n: 1 } });
            if (id === 'twice') setTimeout(() => callback({ data: { n: 2 } }), 5);
            return () => show('unsubscribe', id);
        },
        setRimvoRecordTTL(ttl) { show('setRimvoRecordTTL', ttl); },
        setMetadataTTL(ttl) {
            show('setMetadataTTL', ttl);
            return new Promise((resolve) => setTimeout(resolve, 5));
        },
    };
)";

inline const std::string runtimeAtOnce = dataService + "globalThis.runtime = { dataService };";

} // namespace test
