// Runs in a worker, after emscripten's loader: an engine that answers questions.
"use strict";

// All that a run writes lies in memory, so that it has to have an end.
const mostBytes = 48 << 20;

let engine = null;

function start(module) {
    return createKestrel({
        instantiateWasm(imports, done) {
            WebAssembly.instantiate(module, imports).then((instance) => done(instance, module));
            return {};
        },
        tellProgress(records) { postMessage({progress: records}); },
        print() {},
        printErr() {},
    });
}

function limitFiles(FS) {
    const {stream_ops} = FS.filesystems.MEMFS;
    const write = stream_ops.write;
    const limited = function (stream, buffer, offset, length, position, canOwn) {
        if ((position ?? stream.position) + length > mostBytes) throw new FS.ErrnoError(51);  // ENOSPC
        return write(stream, buffer, offset, length, position, canOwn);
    };
    // The operations of files that are made later are copies of this table.
    const opened = FS.filesystems.MEMFS.ops_table?.file?.stream;
    if (opened) opened.write = limited;
    stream_ops.write = limited;
}

// A question as JSON for the engine, which takes no half of a character.
const whole = (question) => JSON.stringify(question).replace(
    /\\\\|\\ud[89a-f][0-9a-f]{2}/gi, (found) => found === "\\\\" ? found : "\\ufffd");

function ask(question) {
    const size = engine.lengthBytesUTF8(question) + 1;
    const at = engine._malloc(size);
    if (at === 0) throw new Error("no memory for the question");
    engine.stringToUTF8(question, at, size);
    try {
        return engine.UTF8ToString(engine._kestrelAnswer(at));
    } finally {
        engine._free(at);
    }
}

function readFile(path) {
    try {
        engine.FS.chmod(path, 0o600);  // there is no umask to give it permissions
        return engine.FS.readFile(path);
    } catch {
        return new Uint8Array();
    }
}

onmessage = async ({data}) => {
    try {
        if (data.module) {
            engine = await start(data.module);
            const {FS} = engine;
            FS.writeFile("/once", "");  // makes the table of operations
            limitFiles(FS);
            // Prints go to a file.
            FS.close(FS.streams[1]);
            FS.open("/prints", "w");
            postMessage({id: data.id, answer: {}});
            return;
        }
        const {FS} = engine;
        for (const [path, bytes] of Object.entries(data.files ?? {})) FS.writeFile(path, bytes);
        FS.truncate("/prints", 0);
        FS.streams[1].position = 0;
        const answer = JSON.parse(ask(whole(data.question)));
        const files = {};
        for (const path of data.wanted ?? []) {
            files[path] = readFile(path);
            if (path !== "/prints") {
                try { FS.unlink(path); } catch { /* it was not written */ }
            }
        }
        postMessage({id: data.id, answer, files});
    } catch (error) {
        // The engine may be left in the midst of something.
        postMessage({id: data.id, failure: String(error && error.message || error)});
    }
};
