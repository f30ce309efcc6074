"use strict";
(() => {

const $ = (id) => document.getElementById(id);
const encoder = new TextEncoder();
const decoder = new TextDecoder();
const mostTyped = 1 << 20;   // characters that a field of the page holds
const mostShown = 200_000;   // bytes of a result that are shown
const uri = "file:///script.ks";

// An element with a class, a text and children. Texts never become markup.
function make(tag, className, text, ...children) {
    const element = document.createElement(tag);
    if (className) element.className = className;
    if (text !== undefined) element.textContent = text;
    element.append(...children);
    return element;
}

function soon(milliseconds, act) {
    let timer = 0;
    return (...given) => {
        clearTimeout(timer);
        timer = setTimeout(() => act(...given), milliseconds);
    };
}

const count = (number, one, several = one + "s") =>
    `${number.toLocaleString("en")} ${number === 1 ? one : several}`;

let noticeTimer = 0;
function tell(text) {
    $("notice").textContent = text;
    $("notice").hidden = !text;
    clearTimeout(noticeTimer);
    if (text) noticeTimer = setTimeout(() => tell(""), 8000);
}

/* Engines: each in a worker, which is replaced when it is stopped or breaks. */

const compiled = (async () => {
    const packed = Uint8Array.from(atob($("engine").textContent), (letter) => letter.charCodeAt(0));
    const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("gzip"));
    return WebAssembly.compile(await new Response(stream).arrayBuffer());
})();
const workerUrl = URL.createObjectURL(
    new Blob([$("worker").textContent], {type: "text/javascript"}));

class Engine {
    constructor(begun) {
        this.begun = begun;   // called when a worker is ready, also one that replaces another
        this.restart();
    }
    restart() {
        this.worker?.terminate();
        for (const {reject} of this.waiting?.values() ?? []) reject(new Error("stopped"));
        this.waiting = new Map();
        this.last = 0;
        const worker = this.worker = new Worker(workerUrl);
        worker.onmessage = ({data}) => {
            if ("progress" in data) return this.progress?.(data.progress);
            const asked = this.waiting.get(data.id);
            this.waiting.delete(data.id);
            if (data.failure === undefined) return asked?.resolve(data);
            asked?.reject(new Error(data.failure));
            this.restart();
        };
        worker.onerror = (event) => {
            event.preventDefault();
            for (const {reject} of this.waiting.values()) reject(new Error(event.message));
            this.waiting.clear();
        };
        this.ready = compiled.then((module) => this.post({module})).then(() => this.begun?.());
        this.ready.catch(() => {});
    }
    post(message) {
        const id = ++this.last;
        return new Promise((resolve, reject) => {
            this.waiting.set(id, {resolve, reject});
            this.worker.postMessage({...message, id});
        });
    }
    /// The answer with the wanted files; fails after so many milliseconds, with a new worker.
    async ask(question, {files, wanted, within = 15000} = {}) {
        await this.ready;
        const timer = setTimeout(() => this.restart(), within);
        try {
            return await this.post({question, files, wanted});
        } finally {
            clearTimeout(timer);
        }
    }
}

/* The editor, coloured by the grammar that other editors use. */

const grammar = JSON.parse($("grammar").textContent);
const styles = [
    ["comment", "comment"], ["constant.character.escape", "escape"], ["string", "string"],
    ["constant.numeric", "number"], ["constant.language", "atom"], ["keyword.operator", "operator"],
    ["keyword", "keyword"], ["storage", "type"], ["support.function", "builtin"],
    ["entity.name.function.call", "def"], ["entity.name", "def"], ["meta.preprocessor", "comment"],
];
const styleOf = (scope = "") => styles.find(([start]) => scope.startsWith(start))?.[1] ?? null;
function rulesOf(patterns = []) {
    return patterns.flatMap((pattern) => {
        if (pattern.include) return rulesOf(grammar.repository[pattern.include.slice(1)].patterns);
        return [{
            style: styleOf(pattern.name),
            match: new RegExp(pattern.match ?? pattern.begin, "dy"),
            captures: pattern.captures,
            end: pattern.end && new RegExp(pattern.end, "y"),
            inner: pattern.end && rulesOf(pattern.patterns),
        }];
    });
}
const rules = rulesOf(grammar.patterns);

CodeMirror.defineMode("kestrel", () => ({
    startState: () => ({inside: null, pieces: []}),
    copyState: ({inside, pieces}) => ({inside, pieces: [...pieces]}),
    token(stream, state) {
        if (state.pieces.length > 0) {
            const piece = state.pieces.shift();
            stream.pos = Math.max(piece.end, stream.pos + 1);
            return piece.style;
        }
        const at = (expression) => {
            expression.lastIndex = stream.pos;
            const found = expression.exec(stream.string);
            return found && (found[0].length > 0 || found.index === 0) ? found : null;
        };
        const {inside} = state;
        if (inside) {
            const end = at(inside.end);
            if (end) {
                state.inside = null;
                stream.pos += Math.max(end[0].length, 1);
                return inside.style;
            }
        }
        for (const rule of inside ? inside.inner : rules) {
            const found = at(rule.match);
            if (!found || found[0].length === 0) continue;
            if (rule.end) state.inside = rule;
            if (!rule.captures) {
                stream.pos += found[0].length;
                return rule.style;
            }
            let begin = stream.pos;
            const finish = begin + found[0].length;
            for (const [number, {name}] of Object.entries(rule.captures)) {
                const range = found.indices[number];
                if (!range || range[0] === range[1]) continue;
                if (range[0] > begin) state.pieces.push({end: range[0], style: rule.style});
                state.pieces.push({end: range[1], style: styleOf(name)});
                begin = range[1];
            }
            if (begin < finish) state.pieces.push({end: finish, style: rule.style});
            return this.token(stream, state);
        }
        stream.next();
        return inside ? inside.style : null;
    },
    lineComment: "//",
    blockCommentStart: "/*",
    blockCommentEnd: "*/",
    electricInput: /^\s*\}$/,
    indent(state, textAfter) { return CodeMirror.Pass; },
}));

const narrow = matchMedia("(max-width: 860px)");
const editor = CodeMirror($("editor"), {
    mode: "kestrel",
    lineNumbers: true,
    indentUnit: 4,
    matchBrackets: true,
    autoCloseBrackets: true,
    lineWrapping: narrow.matches,
    screenReaderLabel: "Script",
    maxHighlightLength: 5000,
    extraKeys: {
        "Ctrl-Space": () => complete(),
        "F1": () => explain(editor.getCursor()),
        "Ctrl-Enter": () => run(),
        "Cmd-Enter": () => run(),
        // Tab leaves the editor, so that the keyboard is not caught.
        "Tab": false,
        "Shift-Tab": false,
        "Ctrl-]": "indentMore",
        "Ctrl-[": "indentLess",
    },
});
narrow.addEventListener("change", () => editor.setOption("lineWrapping", narrow.matches));
editor.on("beforeChange", (_, change) => {
    const added = change.text.reduce((sum, line) => sum + line.length + 1, 0);
    if (added < 10000) return;
    const kept = editor.getValue().length - editor.getRange(change.from, change.to).length;
    if (added + kept > mostTyped) {
        change.cancel();
        tell("That is too long: a script may have about a million characters here.");
    }
});

/* What the language server says. */

const author = new Engine(async () => {
    asked = 0;
    await authorAsk("initialize", {initializationOptions: {records: "/records"}});
    await sendRecords();
    send("textDocument/didOpen", {textDocument: {uri, languageId: "kestrel", version: ++version, text: editor.getValue()}})
        .then(showProblems);
});
let version = 0;
let asked = 0;
let suggestionsOf = new Map();

async function post(message) {
    const {answer} = await author.post({question: {ask: "author", message: {jsonrpc: "2.0", ...message}}});
    return answer.messages ?? [];
}
const send = (method, params) => post({method, params});
async function authorAsk(method, params) {
    const id = ++asked;
    const messages = await post({id, method, params});
    return messages.find((message) => message.id === id)?.result ?? null;
}
const ask = async (method, params) => {
    await author.ready;
    await changed.now();
    return authorAsk(method, params);
};
const place = ({line, ch}) => ({line, character: ch});
const spot = ({line, character}) => ({line, ch: character});

// The text as it was last sent; each change is sent when no more come, and only the newest.
const changed = (() => {
    let timer = 0, isDue = false, going = null;
    const now = () => {
        clearTimeout(timer);
        if (going) return going;
        if (!isDue) return Promise.resolve();
        going = (async () => {
            while (isDue) {
                isDue = false;
                const guard = setTimeout(() => author.restart(), 15000);
                try {
                    showProblems(await send("textDocument/didChange", {
                        textDocument: {uri, version: ++version},
                        contentChanges: [{text: editor.getValue()}],
                    }));
                } catch { /* a new engine opens the text again */ } finally {
                    clearTimeout(guard);
                }
            }
        })().finally(() => { going = null; });
        return going;
    };
    const later = () => {
        isDue = true;
        clearTimeout(timer);
        timer = setTimeout(() => author.ready.then(now, () => {}), 300);
    };
    return {now, later};
})();
let changedAt = 0;
editor.on("change", () => {
    changedAt = performance.now();
    hideTip();
    changed.later();
});

let marks = [];
const mendLater = soon(1300, () => showProblems(lastProblems));
let lastProblems = [];
let widgets = new Map();   // by line and text, so that what stays does not move
function showProblems(messages) {
    const published = messages.findLast?.((message) => message.method === "textDocument/publishDiagnostics");
    if (!published) return;
    const {diagnostics} = published.params;
    lastProblems = messages;
    // A line that somebody writes is not pushed around by what is wrong with its first half.
    const isWriting = editor.hasFocus() && performance.now() - changedAt < 1200;
    const busy = isWriting ? editor.getCursor().line : -1;
    if (isWriting) mendLater();
    if (published.params.version !== undefined && published.params.version !== version) return;
    editor.operation(() => {
        marks.forEach((mark) => mark.clear());
        marks = [];
        const kept = new Map();
        for (const diagnostic of diagnostics.slice(0, 200)) {
            const from = spot(diagnostic.range.start);
            let to = spot(diagnostic.range.end);
            if (CodeMirror.cmpPos(from, to) === 0) to = {line: to.line, ch: to.ch + 1};
            marks.push(editor.markText(from, to, {className: diagnostic.severity > 1 ? "doubtful" : "wrong"}));
        }
        for (const diagnostic of diagnostics.slice(0, 20)) {
            const {line, character} = diagnostic.range.start;
            if (line >= editor.lineCount()) continue;
            const {message, severity, code = ""} = diagnostic;
            const handle = editor.getLineHandle(line);
            const key = JSON.stringify([line, character, message, severity]);
            const old = widgets.get(key);
            if (old && old.line === handle && !kept.has(key)) {
                kept.set(key, old);
                widgets.delete(key);
                continue;
            }
            if (kept.has(key) || line === busy) continue;
            const node = make("div", severity > 1 ? "told doubt" : "told");
            node.setAttribute("role", "note");
            const start = handle.text.slice(0, character).replace(/[^\t]/g, " ");
            const length = diagnostic.range.end.line === line ? diagnostic.range.end.character - character : 1;
            node.append(make("span", "caret", start.slice(0, 300) + "^" + "~".repeat(Math.max(0, Math.min(length, 60) - 1))));
            const [headline, ...rest] = message.split("\n");
            node.append(make("p", "", headline));
            for (const text of rest) node.append(make("p", "cure", text));
            node.title = code;
            const widget = editor.addLineWidget(handle, node, {coverGutter: false, handleMouseEvents: true});
            kept.set(key, widget);
            offerCure(diagnostic, node, widget);
        }
        for (const widget of widgets.values()) widget.clear();
        widgets = kept;
    });
    const errors = diagnostics.filter(({severity}) => severity === 1).length;
    const doubts = diagnostics.filter(({severity}) => severity === 2).length;
    const button = $("problems");
    button.disabled = diagnostics.length === 0;
    button.className = errors ? "bad" : doubts ? "warn" : "good";
    button.textContent = errors || doubts
        ? [errors && count(errors, "error"), doubts && count(doubts, "warning")].filter(Boolean).join(", ") + " — show the next"
        : "No errors";
    button.onclick = () => {
        const here = editor.getCursor();
        const places = diagnostics.map(({range}) => spot(range.start));
        const next = places.find((one) => CodeMirror.cmpPos(one, here) > 0) ?? places[0];
        editor.focus();
        editor.setCursor(next);
        editor.scrollIntoView(next, 80);
    };
}

async function offerCure(diagnostic, node, widget) {
    const actions = await authorAsk("textDocument/codeAction", {
        textDocument: {uri}, range: diagnostic.range, context: {diagnostics: [diagnostic]},
    }).catch(() => null);
    const mine = actions?.filter((action) => action.diagnostics?.[0]?.message === diagnostic.message) ?? [];
    for (const action of mine.slice(0, 1)) {
        const button = make("button", "", "Do that");
        button.title = action.title;
        button.onclick = () => {
            for (const {range, newText} of action.edit.changes[uri]) {
                editor.replaceRange(newText, spot(range.start), spot(range.end));
            }
            editor.focus();
        };
        node.lastElementChild.append(" ", button);
        widget.changed();
    }
}

/* Explanations: Markdown of the server, of which code and paragraphs are shown. */

function inline(element, text) {
    text.split("`").forEach((part, i) => element.append(i % 2 ? make("code", "", part) : part));
    return element;
}
function shownMarkdown(text) {
    const pieces = document.createDocumentFragment();
    text.split("```").forEach((part, i) => {
        if (i % 2) pieces.append(make("pre", "", part.replace(/^[a-z]*\n/, "").trimEnd()));
        else for (const words of part.split(/\n\n+/)) if (words.trim()) pieces.append(inline(make("p"), words.trim()));
    });
    return pieces;
}
function hideTip() { $("tip").hidden = true; }
function showTip(text, at) {
    const tip = $("tip");
    tip.replaceChildren(shownMarkdown(text));
    tip.hidden = false;
    const box = tip.getBoundingClientRect();
    tip.style.left = `${Math.max(8, Math.min(at.left, innerWidth - box.width - 8))}px`;
    tip.style.top = `${at.bottom + box.height + 8 < innerHeight ? at.bottom + 4 : Math.max(8, at.top - box.height - 4)}px`;
}
async function explain(position) {
    const answer = await ask("textDocument/hover", {textDocument: {uri}, position: place(position)}).catch(() => null);
    if (!answer) return hideTip();
    showTip(answer.contents.value, editor.charCoords(position, "window"));
}
const explainUnder = soon(350, (x, y) => {
    const position = editor.coordsChar({left: x, top: y}, "window");
    const box = editor.charCoords(position, "window");
    // Right of a line's end nothing is meant.
    if (position.outside || Math.abs(box.left - x) > 24 || y < box.top || y > box.bottom) return hideTip();
    explain(position);
});
editor.getWrapperElement().addEventListener("mousemove", ({clientX, clientY}) => explainUnder(clientX, clientY));
editor.getWrapperElement().addEventListener("mouseleave", () => { explainUnder(-1, -1); hideTip(); });
editor.on("scroll", hideTip);
editor.on("cursorActivity", hideTip);

async function hints() {
    const cursor = editor.getCursor();
    const answer = await ask("textDocument/completion", {textDocument: {uri}, position: place(cursor)}).catch(() => null);
    const items = answer?.items ?? answer ?? [];
    const before = editor.getLine(cursor.line).slice(0, cursor.ch);
    const typed = /[A-Za-z_][\w.]*$/.exec(before)?.[0] ?? "";
    const rank = (item) => item.label.startsWith(typed) ? 0 : 1;
    const fits = items.filter((item) => item.label.toLowerCase().includes(typed.toLowerCase()))
        .sort((a, b) => rank(a) - rank(b)).slice(0, 60);
    return {
        from: {line: cursor.line, ch: cursor.ch - typed.length},
        to: cursor,
        list: fits.map((item) => ({
            text: item.textEdit?.newText ?? item.insertText ?? item.label,
            render(element) { element.append(item.label, make("small", "", item.detail ?? "")); },
            hint: (cm, data, chosen) => {
                // What snippets have in braces is only shown.
                const plain = chosen.text.replace(/\$\{\d+:?([^}]*)\}|\$\d+/g, "$1");
                cm.replaceRange(plain, data.from, cm.getCursor(), "complete");
            },
        })),
    };
}
function complete() {
    editor.showHint({hint: hints, completeSingle: false});
}
const completeSoon = soon(250, () => { if (!editor.state.completionActive && editor.hasFocus()) complete(); });
editor.on("inputRead", (_, change) => {
    if (change.origin !== "+input" || !/[A-Za-z_]$/.test(change.text[0])) return;
    const {line, ch} = editor.getCursor();
    const token = editor.getTokenTypeAt({line, ch});
    if (token === "comment" || token === "string") return;
    if (/[A-Za-z_][\w.]{2,}$/.test(editor.getLine(line).slice(0, ch))) completeSoon();
});

$("tidy").onclick = async () => {
    const edits = await ask("textDocument/formatting", {textDocument: {uri}, options: {tabSize: 4, insertSpaces: true}}).catch(() => null);
    if (!edits) return tell("The script cannot be tidied up before its errors are mended.");
    for (const {range, newText} of edits) editor.replaceRange(newText, spot(range.start), spot(range.end));
};

/* Records: typed ones, or bytes of a file, which stay as they are. */

let held = null;
function hold(bytes, name) {
    held = bytes;
    const text = $("records");
    const isHeld = bytes !== null;
    $("held").hidden = !isHeld;
    text.readOnly = isHeld;
    if (isHeld) {
        const size = bytes.length < 1e6 ? `${Math.ceil(bytes.length / 1e3)} kB` : `${(bytes.length / 1e6).toFixed(1)} MB`;
        text.value = decoder.decode(bytes.subarray(0, 20000));
        $("held-text").textContent = `${name}, ${size}${bytes.length > 20000 ? "; its beginning is shown" : ""}`;
    } else {
        text.value = "";
    }
    recordsChanged();
}
$("drop-held").onclick = () => hold(null);
const formats = {csv: {format: "csv"}, semicolon: {format: "csv", delimiter: ";"}, tsv: {format: "tsv"}, jsonl: {format: "jsonl"}, lines: {format: "lines"}};
function recordsNow() {
    const kind = formats[$("format").value];
    return kind && {...kind, header: $("header").checked, input: "records", output: "/output", rejects: "/rejects"};
}
const recordBytes = () => held ?? encoder.encode($("records").value);
async function sendRecords() {
    const records = recordsNow();
    // Names of fields come from the first records.
    const bytes = recordBytes().slice(0, 200_000);
    const end = bytes.length === 200_000 ? bytes.lastIndexOf(10) + 1 : bytes.length;
    await author.post({question: {ask: "records", records}, files: {"/records": bytes.slice(0, end)}});
}
const recordsChanged = soon(300, async () => {
    await author.ready;
    await sendRecords();
    showProblems(await send("textDocument/didChange", {textDocument: {uri, version: ++version}, contentChanges: [{text: editor.getValue()}]}));
});
function formatChanged() {
    const kind = $("format").value;
    const isNone = kind === "none";
    $("records").disabled = $("open-records").disabled = isNone;
    $("header").disabled = !["csv", "semicolon", "tsv"].includes(kind);
    recordsChanged();
}
$("format").onchange = formatChanged;
$("header").onchange = recordsChanged;
$("records").oninput = recordsChanged;
$("records").addEventListener("paste", (event) => {
    const text = event.clipboardData.getData("text");
    if (text.length < mostTyped || $("records").readOnly) return;
    event.preventDefault();
    hold(encoder.encode(text), "Pasted text");
});

function pick(take) {
    const input = $("file");
    input.value = "";
    input.onchange = async () => { if (input.files[0]) take(input.files[0], new Uint8Array(await input.files[0].arrayBuffer())); };
    input.click();
}
function save(bytes, name) {
    const link = make("a");
    link.href = URL.createObjectURL(new Blob([bytes]));
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
$("open-script").onclick = () => pick((file, bytes) => setScript(decoder.decode(bytes)));
$("save-script").onclick = () => save(encoder.encode(editor.getValue()), "script.ks");
$("open-records").onclick = () => pick((file, bytes) => hold(bytes, file.name));

function setScript(text) {
    if (text.length > mostTyped) return tell("That is too long: a script may have about a million characters here.");
    editor.setValue(text);
    editor.clearHistory();
}

/* Runs. */

let running = null;
const runner = new Engine(() => { if (!running) $("run").disabled = false; });
runner.progress = (records) => { if (running) running.records = records; };
let results = {};
let shown = "output";

function say(text, kind = "") {
    $("state").textContent = text;
    $("state").className = kind;
}
const seconds = (since) => `${((performance.now() - since) / 1000).toFixed(1)} s`;
const number = (id, otherwise) => { const value = Number($(id).value); return value > 0 ? value : otherwise; };

async function run() {
    if (running || $("run").disabled) return;
    const records = recordsNow();
    const begin = performance.now();
    const mine = running = {begin, records: 0};
    $("run").disabled = true;
    $("stop").disabled = false;
    const clock = setInterval(() => {
        say(`Running for ${seconds(begin)}${mine.records ? `, ${count(mine.records, "record")}` : ""} …`);
    }, 200);
    say("Running …");
    const whole = number("limit-all", 20);
    const watch = setTimeout(() => stop(`Stopped after ${whole} s, the limit for a whole run. It can be changed under “Limits”.`), whole * 1000);
    try {
        await runner.ready;
        const question = {
            ask: "run", script: editor.getValue(),
            limits: {time: Math.round(number("limit-time", 2) * 1000), memory: Math.round(number("limit-memory", 128) * (1 << 20))},
        };
        if (records) question.records = records;
        const {answer, files} = await runner.post({
            question,
            files: records ? {"/records": recordBytes()} : {},
            wanted: ["/output", "/prints", "/rejects"],
        });
        if (running === mine) showRun(answer, files, seconds(begin));
    } catch (error) {
        if (running === mine) showBreak(error);
    } finally {
        clearInterval(clock);
        clearTimeout(watch);
        if (running === mine) {
            running = null;
            $("stop").disabled = true;
            $("run").disabled = false;
        }
    }
}
function stop(why) {
    if (!running) return;
    running = null;
    $("stop").disabled = true;
    runner.restart();
    setResults({});
    say(why ?? "Stopped. What it had written is dropped.", "bad");
    runner.ready.then(() => { $("run").disabled = false; }, () => {});
}
function showBreak(error) {
    setResults({});
    const isDeep = /call stack|recursion/i.test(error.message);
    say(isDeep ? "Stopped: the script's functions call each other too deep for this browser."
        : "Stopped: the script needed more than this browser gives. " + error.message, "bad");
}
$("run").onclick = run;
$("stop").onclick = () => stop();
addEventListener("keydown", (event) => {
    if (event.key === "Escape") {
        if (!$("tip").hidden) hideTip();
        else if (running) stop();
    }
    if (event.key === "Enter" && (event.ctrlKey || event.metaKey) && !event.defaultPrevented) run();
});

function showRun(answer, files, time) {
    const {end, error, counts, messages = [], moreMessages = 0} = answer;
    setResults({output: files["/output"], prints: files["/prints"], rejects: files["/rejects"], messages, moreMessages});
    const errors = messages.filter(({severity}) => severity === "error").length;
    const parts = [];
    if (counts) {
        parts.push(`${count(counts.read, "record")} read`, `${counts.written} written`, `${counts.rejected} rejected`);
        if (counts.dropped) parts.push(`${counts.dropped} dropped`);
        if (counts.extra) parts.push(`${counts.extra} more written by the script`);
    }
    const why = {
        "done": `Done in ${time}`,
        "not compiled": "The script has errors and did not run",
        "stopped": `Stopped after ${time}`,
        "ended by the script": `Ended by the script after ${time}`,
    }[end] ?? "It could not be run to the end";
    const reason = error || answer.error || (end === "stopped" && messages.findLast?.(({severity}) => severity === "error")?.message) || "";
    say([why + (reason ? `: ${reason}` : ""), ...parts].join(" · "), end === "done" && errors === 0 ? "good" : end === "done" ? "" : "bad");
    if (narrow.matches) $("result-pane").scrollIntoView({block: "start"});
    const best = end !== "done" || errors ? "messages"
        : results.output?.length ? "output" : results.prints?.length ? "prints" : "output";
    select($("results"), $("tab-" + best));
}

function lines(bytes) {
    let found = 0;
    for (let at = bytes.indexOf(10); at >= 0; at = bytes.indexOf(10, at + 1)) ++found;
    return found + (bytes.length > 0 && bytes[bytes.length - 1] !== 10 ? 1 : 0);
}
function setResults(given) {
    results = given;
    for (const name of ["output", "prints", "rejects"]) {
        const bytes = given[name] ?? new Uint8Array();
        const pane = $("show-" + name);
        pane.textContent = decoder.decode(bytes.subarray(0, mostShown));
        pane.scrollTop = 0;
        $("tab-" + name).querySelector("b").textContent = bytes.length ? lines(bytes).toLocaleString("en") : "";
    }
    const list = $("show-messages");
    list.replaceChildren();
    for (const message of (given.messages ?? []).slice(0, 300)) {
        const item = make("button", `item ${message.severity === "error" ? "bad" : "warn"}`);
        item.append(make("span", "", (message.line > 0 ? `Line ${message.line}: ` : "") + message.message));
        for (const note of message.notes ?? []) item.append(make("small", "", note.text ?? note.message));
        if (message.cure) item.append(make("small", "", message.cure));
        item.onclick = () => {
            if (!(message.line > 0)) return;
            select($("views"), $("view-script"));
            editor.focus();
            editor.setCursor({line: message.line - 1, ch: Math.max(0, message.column - 1)});
        };
        list.append(item);
    }
    const all = (given.messages?.length ?? 0) + (given.moreMessages ?? 0);
    if (all > 300) list.append(make("p", "soft", `and ${count(all - 300, "more message", "more messages")}`));
    $("tab-messages").querySelector("b").textContent = all ? all.toLocaleString("en") : "";
    showCut();
}
function showCut() {
    const bytes = results[shown] instanceof Uint8Array ? results[shown] : new Uint8Array();
    $("save-result").disabled = bytes.length === 0;
    $("cut").textContent = bytes.length > mostShown
        ? `Shown: the first ${mostShown / 1000} kB of ${(bytes.length / 1e6).toFixed(1)} MB` : "";
}
$("save-result").onclick = () => save(results[shown], {output: "output.txt", prints: "printed.txt", rejects: "rejected.txt"}[shown]);

/* Tabs, by mouse and by arrows. */

function select(list, tab) {
    for (const one of list.querySelectorAll("[role=tab]")) {
        const isChosen = one === tab;
        one.setAttribute("aria-selected", isChosen);
        one.tabIndex = isChosen ? 0 : -1;
        $(one.getAttribute("aria-controls")).hidden = !isChosen;
    }
    if (list.id === "results") { shown = tab.id.slice(4); showCut(); }
    if (tab.id === "view-script") editor.refresh();
    if (tab.id === "view-patterns") findSwitches();
}
for (const list of [$("views"), $("results")]) {
    const tabs = [...list.querySelectorAll("[role=tab]")];
    for (const tab of tabs) tab.onclick = () => select(list, tab);
    list.addEventListener("keydown", (event) => {
        const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
        if (!step) return;
        const next = tabs[(tabs.indexOf(document.activeElement) + step + tabs.length) % tabs.length];
        select(list, next);
        next.focus();
    });
}

/* Patterns. */

let switches = [];
async function findSwitches() {
    const {answer} = await author.ask({ask: "cases", script: editor.getValue()}).catch(() => ({answer: {}}));
    switches = answer.switches ?? [];
    const choice = $("switches");
    choice.replaceChildren(new Option(switches.length ? "choose a switch" : "has no switch over patterns", ""));
    switches.forEach(({line, patterns}, i) => choice.append(new Option(`line ${line}, ${count(patterns.length, "case")}`, i)));
    if (!$("patterns").value && switches.length) { choice.value = "0"; choice.onchange(); }
    inspect();
}
$("switches").onchange = () => {
    const chosen = switches[$("switches").value];
    if (!chosen) return;
    // A line end within a pattern is written as its escape, so that each stays in its line.
    $("patterns").value = chosen.patterns.map((text) => text.replaceAll("\n", "\\n")).join("\n");
    inspect();
};
const split = (text) => text.length === 0 ? [] : text.replace(/\n$/, "").split("\n");
const quoted = (text) => make("code", "", text === "" ? "the empty text" : text.replace(/[\u0000-\u001f\u007f]/g, (c) => `\\${String(c.charCodeAt(0)).padStart(3, "0")}`));
const caseNames = (paths) => (paths.length > 1 ? "cases " : "case ") + paths.map((path) => path + 1).join(", ").replace(/, (\d+)$/, " and $1");

function table(heads, rows) {
    const body = make("tbody");
    for (const cells of rows) {
        const row = make("tr");
        for (const cell of cells) row.append(cell instanceof Element && cell.tagName === "TD" ? cell : make("td", "", undefined, ...[cell].flat()));
        body.append(row);
    }
    return make("table", "", undefined, make("thead", "", undefined, make("tr", "", undefined, ...heads.map((head) => make("th", "", head)))), body);
}
let inspection = 0;
const inspect = soon(250, async () => {
    const mine = ++inspection;
    const patterns = split($("patterns").value), texts = split($("texts").value);
    const isLong = $("patterns").value.length > mostTyped || $("texts").value.length > mostTyped;
    if (isLong || patterns.length > 20000 || texts.length > 20000) {
        $("never").replaceChildren(make("p", "bar bad-text", "That is too long: 20,000 lines of a million characters in all fit in here."));
        return;
    }
    let answer;
    try {
        ({answer} = await author.ask({
            ask: "patterns", patterns, texts, ignoresCase: $("ignore-case").checked, isUtf8: $("utf8").checked,
        }));
    } catch {
        answer = {error: "the patterns take too long to be looked into"};
    }
    if (mine !== inspection) return;
    const mostRows = 500;
    if (answer.error) {
        $("found").replaceChildren();
        $("never").replaceChildren(make("p", "bar bad-text", answer.error));
        return;
    }
    if (answer.faults) {
        $("found").replaceChildren(make("p", "bar soft", "First the patterns must be mended."));
        $("never").replaceChildren(table(["Case", "Pattern", "What is wrong"], answer.faults.slice(0, mostRows).map(({path, column, text}) => {
            const shownPattern = make("td", "", undefined, make("code", "", patterns[path]));
            shownPattern.append(make("span", "caret-line", " ".repeat(Math.min(column, 500)) + "^"));
            return [String(path + 1), shownPattern, make("span", "bad-text", text)];
        })));
        return;
    }
    $("found").replaceChildren(table(["", "Text", "Taken by"], texts.slice(0, mostRows).map((text, i) => {
        const [first, ...others] = answer.matches[i];
        if (first === undefined) return [String(i + 1), quoted(text), make("span", "warn-text", "no case")];
        const taken = [make("strong", "", `case ${first + 1} `), quoted(patterns[first])];
        if (others.length) taken.push(make("small", "soft", `  ${caseNames(others)} would match, too`));
        return [String(i + 1), quoted(text), taken];
    })));
    const {analysis, examples} = answer;
    const never = new Map(analysis.shadowed.map((one) => [one.path, one]));
    const empty = new Set(analysis.empty);
    const leaving = new Set(analysis.leaving);
    const overlaps = new Map();
    for (const {first, second, text} of analysis.overlaps) {
        if (!overlaps.has(second)) overlaps.set(second, []);
        overlaps.get(second).push({first, text});
    }
    $("never").replaceChildren(table(["Case", "Pattern", "What it is for"], patterns.slice(0, mostRows).map((pattern, path) => {
        const cell = [];
        const one = never.get(path);
        if (empty.has(path)) cell.push(make("span", "bad-text", "It matches nothing."));
        else if (one) {
            cell.push(make("span", "bad-text", `Never taken: ${caseNames(one.by)} ${one.by.length > 1 ? "together take" : "takes"} all its texts, such as `), quoted(one.text));
        } else {
            cell.push(...examples[path] == null ? ["Taken."] : ["Taken, for example for ", quoted(examples[path])]);
            const shared = overlaps.get(path);
            if (shared) cell.push(make("div", "soft", undefined, `${caseNames([shared[0].first])} comes first for `, quoted(shared[0].text)));
        }
        if (leaving.has(path)) cell.push(make("div", "warn-text", "It matches the empty text, and therefore also texts that no other case matches."));
        return [String(path + 1), make("code", "", pattern), cell];
    })));
    if (!analysis.isComplete) $("never").append(make("p", "bar soft", "The list is long: not all pairs of cases were compared."));
});
for (const id of ["patterns", "texts"]) $(id).oninput = inspect;
for (const id of ["ignore-case", "utf8"]) $(id).onchange = inspect;
$("texts").value = "4915112345678\n49301234567\n08001234567\n33142685300\nhello";

/* Samples. */

const samples = JSON.parse($("samples").textContent);
samples.forEach(({title}, i) => $("sample").append(new Option(title, i)));
function showSample(sample) {
    $("format").value = sample.format ?? "none";
    $("header").checked = sample.header ?? false;
    held = null;
    $("held").hidden = true;
    $("records").readOnly = false;
    $("records").value = sample.records ?? "";
    setScript(sample.script);
    formatChanged();
    setResults({});
    say("Nothing has run yet.");
}
$("sample").onchange = () => showSample(samples[$("sample").value]);
showSample(samples[0]);

// For tests and for whoever is curious.
window.playground = {editor, author, runner, run, stop, hold, showSample, samples};
compiled.catch((error) => {
    $("problems").textContent = "The engine does not start in this browser.";
    tell("This browser cannot run the engine: " + error.message);
});
})();
