// What a runtime does with drafts, as small as it can be: two of them, kept in memory.

const minute = 60 * 1000;
const apiName = 'ZEM_ACTION_METADATA_API_NAME';

const drafts = [
    {
        id: 'first',
        targetId: '001',
        state: 'error',
        operationType: 'update',
        timestamp: Date.now() - 3.5 * minute,
        metadata: { [apiName]: 'Account' },
        error: {
            status: 400,
            headers: {},
            ok: false,
            statusText: 'Bad Request',
            bodyString: '[{"message":"Name is required"}]',
        },
    },
    {
        id: 'second',
        targetId: '500',
        state: 'pending',
        operationType: 'create',
        timestamp: Date.now() - 2.5 * 60 * minute,
        metadata: { [apiName]: 'Case' },
    },
];

let queueState = 'stopped';
let changed = () => {};

const queue = () => ({ queueState, items: drafts });

function remove(id, kind) {
    const [removed] = drafts.splice(drafts.findIndex((draft) => draft.id === id), 1);
    changed(queue(), kind, removed);
}

globalThis.runtime = {
    draftManager: {
        registerDraftQueueChangedListener(listener) {
            changed = listener;
            return () => {};
        },
        async getQueue() {
            return queue();
        },
        async removeDraftAction(id) {
            if (!drafts.some((draft) => draft.id === id)) throw `there is no draft ${id}`;
            remove(id, 'deleted');
            return queue();
        },
        startQueue() {
            queueState = 'started';
            changed(queue(), 'started');
        },
        stopQueue() {
            queueState = 'stopped';
            changed(queue(), 'stopped');
        },
    },
    draftQueue: {
        async processNextAction() {
            if (drafts.length === 0) return 'NO_ACTION_TO_PROCESS';
            if (drafts[0].state === 'error') return 'BLOCKED_ON_ERROR';
            remove(drafts[0].id, 'completed');
            return 'SUCCESS';
        },
    },
};
