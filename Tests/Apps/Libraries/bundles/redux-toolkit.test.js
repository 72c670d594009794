import { configureStore, createAsyncThunk, createSlice } from '@reduxjs/toolkit';

import { done, equal } from '../../Globals/bundles/check.js';

const [url] = host.args;
const load = createAsyncThunk('records/load', async (path, { signal, rejectWithValue }) => {
    const response = await fetch(url + path, { signal });
    return response.ok ? response.json() : rejectWithValue(response.status);
});
const records = createSlice({
    name: 'records',
    initialState: { log: [] },
    reducers: {},
    extraReducers: (builder) => builder
        .addCase(load.pending, (state, { meta }) => {
            state.log.push(`pending ${meta.arg}`);
        })
        .addCase(load.fulfilled, (state, { payload }) => {
            state.log.push(`fulfilled ${payload.target}`);
        })
        .addCase(load.rejected, (state, { payload, error, meta }) => {
            state.log.push(`rejected ${payload ?? error.name} ${meta.aborted} ${meta.rejectedWithValue}`);
        }),
});
const store = configureStore({ reducer: { records: records.reducer } });

(async () => {
    equal((await store.dispatch(load('/echo')).unwrap()).method, 'GET');
    equal((await store.dispatch(load('/missing'))).payload, 404);
    const hanging = store.dispatch(load('/hang'));
    await fetch(`${url}/asked`);
    hanging.abort('not needed');
    const { error, meta } = await hanging;
    equal([error.name, error.message, meta.aborted], ['AbortError', 'not needed', true]);
    equal(store.getState().records.log, ['pending /echo', 'fulfilled /echo', 'pending /missing',
        'rejected 404 false true', 'pending /hang', 'rejected AbortError true false']);
    done();
})();
