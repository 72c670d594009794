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

/// `draftManager` and `draftQueue`, which say what they are asked. The items are of no time that
/// has passed; changes are reported by `changed`, and `executor` is what was registered.
inline const std::string drafts = R"(
    const tell = (...values) => console.log(JSON.stringify(values));
    const item = {
        id: 'a', targetId: '001', state: 'pending', operationType: 'create', timestamp: -1,
        metadata: { ZEM_ACTION_METADATA_API_NAME: 'Account' },
    };
    const failed = {
        id: 'b', state: 'error', operationType: 'update', timestamp: -2,
        error: { status: 400, headers: {}, ok: false, statusText: 'Bad Request' },
    };
    let queueState = 'stopped';
    let listener;
    let executor;
    const changed = (kind, about) =>
        listener({ queueState, items: [item, failed] }, kind, about);
    const draftManager = {
        registerDraftQueueChangedListener(heard) {
            listener = heard;
            return () => {};
        },
        async getQueue() {
            return { queueState, items: [item, failed] };
        },
        async removeDraftAction(...values) {
            tell('removeDraftAction', ...values);
            changed('deleted', item);
            return { queueState, items: [failed] };
        },
        async replaceAction(...values) {
            tell('replaceAction', ...values);
            return item;
        },
        async mergeActions(...values) {
            tell('mergeActions', ...values);
            return item;
        },
        async setMetadata(...values) {
            tell('setMetadata', ...values);
            return item;
        },
        startQueue(...values) {
            tell('startQueue', ...values);
            queueState = 'started';
            changed('started');
        },
        stopQueue(...values) {
            tell('stopQueue', ...values);
            queueState = 'stopped';
            changed('stopped');
        },
        async addCustomAction(...values) {
            tell('addCustomAction', ...values);
            return { id: 'c', state: 'pending', operationType: 'custom', timestamp: -3 };
        },
        async setCustomActionExecutor(handler, execute) {
            tell('setCustomActionExecutor', handler);
            executor = execute;
            return () => {};
        },
    };
    const draftQueue = {
        async processNextAction(...values) {
            tell('processNextAction', ...values);
            return 'NO_ACTION_TO_PROCESS';
        },
        callProxyMethod(name, args, onResult, onError) {
            if (name === 'bad') onError({ error: 'refused' });
            else onResult(`${name} ${args}`);
        },
    };
)";

inline const std::string runtimeAtOnce = dataService + "globalThis.runtime = { dataService };";

} // namespace test
