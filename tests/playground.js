// usage: node playground.js PAGE BROWSER [PICTURES]
//
// Opens the page in a browser without a network and uses it as an author does: by keys, clicks and
// pasted texts. With PICTURES, a folder, keeps a picture of each stage.
"use strict";
const {spawn} = require("child_process");
const fs = require("fs");
const os = require("os");
const path = require("path");

const [page, command, pictures] = process.argv.slice(2);
const profile = fs.mkdtempSync(path.join(os.tmpdir(), "playground-"));
const browser = spawn(command, [
    "--headless=new", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe", "--no-first-run",
    "--disable-background-networking", "--host-resolver-rules=MAP * ~NOTFOUND", `--user-data-dir=${profile}`, "about:blank",
], {stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"]});
const waiting = new Map();
const events = [];
let last = 0, rest = "", session;
browser.stdio[4].setEncoding("utf8").on("data", (text) => {
    const messages = (rest + text).split("\0");
    rest = messages.pop();
    for (const message of messages.map((one) => JSON.parse(one))) {
        if (!message.id) { events.push(message); continue; }
        const {resolve, reject} = waiting.get(message.id);
        waiting.delete(message.id);
        message.error ? reject(new Error(JSON.stringify(message.error))) : resolve(message.result);
    }
});
function call(method, params = {}) {
    browser.stdio[3].write(JSON.stringify({id: ++last, method, params, sessionId: session}) + "\0");
    return new Promise((resolve, reject) => waiting.set(last, {resolve, reject}));
}
async function run(code) {
    const {result, exceptionDetails} = await call("Runtime.evaluate", {
        expression: `(async () => { const $ = (id) => document.getElementById(id); const {editor, hold, showSample, samples} = window.playground ?? {}; ${code} })()`,
        awaitPromise: true, returnByValue: true,
    });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
}
async function until(what, code, within = 30000) {
    const end = Date.now() + within;
    for (;;) {
        if (await run(code).catch(() => false)) return;
        if (Date.now() > end) throw new Error(`in vain: ${what}; ${JSON.stringify(await run("return [$('state').textContent, $('problems').textContent, $('notice').textContent]"))}`);
        await new Promise((done) => setTimeout(done, 30));
    }
}
async function picture(name) {
    if (!pictures) return;
    const {data} = await call("Page.captureScreenshot", {format: "png"});
    fs.writeFileSync(path.join(pictures, name + ".png"), Buffer.from(data, "base64"));
}
const press = async (key, modifiers = 0) => {
    for (const type of ["keyDown", "keyUp"]) {
        await call("Input.dispatchKeyEvent", {type, key, code: key, modifiers, windowsVirtualKeyCode: {Enter: 13, Escape: 27, F1: 112}[key]});
    }
};
const view = (width, height, colours = "light") => Promise.all([
    call("Emulation.setDeviceMetricsOverride", {width, height, deviceScaleFactor: 1, mobile: false}),
    call("Emulation.setEmulatedMedia", {features: [{name: "prefers-color-scheme", value: colours}]}),
]);
let failures = 0;
function same(what, actual, expected) {
    const [a, b] = [actual, expected].map((one) => JSON.stringify(one));
    if (a === b) return;
    ++failures;
    console.log(`${what}:\n  is       ${a}\n  expected ${b}`);
}
const ready = () => until("the engine checks", "return /errors?\\b|warning/.test($('problems').textContent)");
const finished = () => until("the run ends", "return !$('run').disabled && $('stop').disabled");
const result = () => run("return {state: $('state').className, output: $('show-output').textContent, prints: $('show-prints').textContent, rejects: $('show-rejects').textContent, messages: $('show-messages').innerText}");
// Runs a script, for records of a kind or none.
async function ran(script, records, format = "csv", header = true) {
    await run(`showSample({script: ${JSON.stringify(script)}, records: ${JSON.stringify(records ?? "")}, format: ${JSON.stringify(records === undefined ? "none" : format)}, header: ${header}}); $('run').click();`);
    await finished();
    return result();
}

async function main() {
    const {targetId} = await call("Target.createTarget", {url: "about:blank"});
    ({sessionId: session} = await call("Target.attachToTarget", {targetId, flatten: true}));
    for (const domain of ["Page", "Runtime", "Network", "Log"]) await call(domain + ".enable");
    await call("Network.emulateNetworkConditions", {offline: true, latency: 0, downloadThroughput: 0, uploadThroughput: 0});
    await view(1400, 900);
    const begin = Date.now();
    await call("Page.navigate", {url: "file://" + path.resolve(page)});
    await until("the page loads", "return window.playground !== undefined");
    await ready();
    console.log(`ready after ${Date.now() - begin} ms`);

    // The sample, by keys, as the command runs it.
    await run("editor.focus()");
    await press("Enter", 2);
    await finished();
    const sample = await result();
    same("the sample's end", sample.prints.split("\n").at(-2), "all: 209.33");
    same("its counts", await run("return $('state').textContent.replace(/Done in [^ ]* s/, '')"), " · 400 records read · 393 written · 7 rejected");
    await picture("wide");
    await view(1400, 900, "dark");
    await picture("wide-dark");
    await view(390, 844);
    await picture("narrow");
    same("wider than a narrow window", await run("return document.documentElement.scrollWidth - document.documentElement.clientWidth"), 0);
    await run("scrollTo(0, document.documentElement.scrollHeight)");
    await picture("narrow-end");
    await view(1400, 900);

    // An error while one types: under its line, with a cure that can be taken.
    await run(`showSample({script: "Long number = 1;\\nlogStdout(longToStr(numbr));\\n"})`);
    await until("the error shows", "return document.querySelector('.told button')");
    same("its place", await run("const told = document.querySelector('.told'); return [told.querySelector('.caret').textContent, told.closest('.CodeMirror-code > div').querySelector('.CodeMirror-linenumber').textContent]"), [" ".repeat(20) + "^~~~~", "2"]);
    await picture("error");
    await run("document.querySelector('.told button').click()");
    await until("the cure helps", "return $('problems').textContent === 'No errors'");
    same("the cure", await run("return editor.getLine(1)"), "logStdout(longToStr(number));");
    await run("editor.setCursor({line: 1, ch: 12}); editor.focus()");
    await press("F1");
    await until("the explanation shows", "return !$('tip').hidden && $('tip').textContent.includes('String longToStr(')");
    await picture("explained");
    await press("Escape");
    // Quick typing: what counts is the last state.
    await run("editor.setValue(''); editor.focus()");
    await call("Input.insertText", {text: "St"});
    for (const letter of "ring text = strToUpper(\"a\");\nlogStd") await call("Input.insertText", {text: letter});
    await until("names are offered", "return [...document.querySelectorAll('.CodeMirror-hint')].some((hint) => hint.textContent.startsWith('logStdout'))");
    await picture("offered");
    await press("Escape");
    await run("editor.setValue('Long a = 1;')");
    await until("the last text is checked", "return !$('problems').textContent.includes('error')");
    await run("editor.setValue('\\ud800 \\\\ud800 {')");
    await until("half of a character is told", "return /\\d error/.test($('problems').textContent)");
    // Fields that the records do not have.
    await run(`showSample({script: "Long s = edrLong(secnds);\\n", records: "a,seconds\\n1,2\\n", format: "csv", header: true})`);
    await until("an unknown field is told", "return document.querySelector('.told')?.textContent.includes('secnds')");

    // What a run gives, and what it must survive.
    const json = await ran("edrLong(b.c) = edrLong(b.c) + 4000000000;", '{"a":"ä","b":{"c":1}}\n{"b":[}\n', "jsonl");
    same("JSON", [json.output, json.rejects.split(": ")[0]], ['{"a":"ä","b":{"c":4000000001}}\n', "records:2"]);
    const injected = "<img src=x onerror=window.hacked=1></script><b>";
    const markup = await ran(`logStdout("${injected}"); recordReject(edrString(a)); // ${injected}`, `a\n${injected}\n`);
    same("markup stays text", [markup.prints, markup.rejects.includes(injected), await run("return window.hacked ?? 0")], [injected, true, 0]);
    await run(`editor.setValue("String a = ${injected};"); $('patterns').value = ${JSON.stringify(injected)}; $('view-patterns').click()`);
    await until("a pattern with markup is shown", "return $('never').querySelector('code')?.textContent.includes('<img')");
    same("it stays text", await run("return document.querySelectorAll('img, main b b').length + (window.hacked ?? 0)"), 0);
    await run("$('view-script').click()");
    const stopped = [
        ["an endless loop", "Long i = 0;\nwhile (true) i = i + 1;\n", /'time'.*line 2|time.*2/i],
        ["a memory bomb", 'String s = "x";\nwhile (true) s = s + s;\n', /limit|memory|string/i],
        ["an array bomb", "Long a[];\nLong i = 0;\nwhile (true) { a[i] = i; i = i + 1; }\n", /limit|memory|elements|time/i],
        ["endless calls", "function Long f(Long n) { return f(n + 1) + 1; }\nLong a = f(0);\n", /depth/i],
        ["endless prints", 'while (true) logStdout("0123456789012345678901234567890123456789\\n");\n', /./],
    ];
    for (const [what, script, expected] of stopped) {
        const {state, messages} = await ran(script);
        same(what, [state, expected.test(messages)], ["bad", true]);
        if (!expected.test(messages)) console.log(messages, await run("return $('state').textContent"));
    }
    await run("$('limit-time').value = 60; $('run').click()");
    await new Promise((done) => setTimeout(done, 400));
    await run(`editor.setValue("while (true) {}")`);
    await run("$('stop').click()");
    await finished();
    same("Stop", await run("return $('state').textContent.startsWith('Stopped')"), true);
    await run("$('limit-time').value = 2");
    same("after all of that", (await ran('logStdout("still " + longToStr(9223372036854775807) + "\\n");')).prints, "still 9223372036854775807\n");
    // Addresses have 32 bits, numbers and hashes 64.
    same("a switch over texts", (await ran('switch ("key") { case "a": case "b": logStdout("1"); break; case "key": logStdout("2"); default: }')).prints, "2");
    // Nesting, and a text that is too long.
    const deep = await ran("Long a = " + "(".repeat(20000) + "1" + ")".repeat(20000) + ";");
    same("deep nesting", [deep.state, /nest/i.test(deep.messages)], ["bad", true]);
    await run("editor.setValue(''); editor.replaceSelection('x'.repeat(10000000))");
    same("10 MB in the editor", await run("return [editor.getValue().length, $('notice').textContent.slice(0, 16)]"), [0, "That is too long"]);
    // 10 MB of records with bytes that are no UTF-8 come back as they are.
    await run(`showSample({script: 'edrString(b) = "1";', records: "", format: "csv", header: false});
        const bytes = new Uint8Array(10e6).fill(0xE4); for (let at = 99; at < bytes.length; at += 100) bytes[at] = 10; hold(bytes, "large");
        editor.setValue(""); $('run').click();`);
    await finished();
    same("10 MB of strange bytes", await run("return [$('state').className, $('tab-output').textContent, $('cut').textContent]"), ["good", "Records 100,000", "Shown: the first 200 kB of 10.0 MB"]);

    // The inspector of patterns, from the sample with a case that is never reached.
    await run("showSample(samples[3]); $('patterns').value = ''; $('view-patterns').click()");
    await until("the case is found", "return $('never').querySelectorAll('tbody tr').length === 6");
    await run("$('texts').value = $('records').value; $('texts').oninput()");
    await until("texts are matched", "return $('found').querySelectorAll('tbody tr').length === 6");
    same("who takes the lines", await run("return [...$('found').querySelectorAll('strong')].map((one) => one.textContent.trim())"), ["case 6", "case 4", "case 2", "case 6", "case 3", "case 1"]);
    same("which case never", await run("return [...$('never').querySelectorAll('tbody tr')].map((row) => row.cells[2].textContent.split(' ')[0])"), ["Taken,", "Taken,", "Taken,", "Taken,", "Never", "Taken,"]);
    await picture("patterns");
    await view(390, 844);
    await picture("patterns-narrow");
    same("wider than a narrow window", await run("return document.documentElement.scrollWidth - document.documentElement.clientWidth"), 0);
    await run("$('patterns').value = 'ab(c'; $('patterns').oninput()");
    await until("a bad pattern is shown", "return $('never').textContent.includes('ab(c')");
    same("where it is bad", await run("return $('never').querySelector('.caret-line').textContent"), "    ^");

    const wrong = events.filter(({method, params}) => method === "Runtime.exceptionThrown" || (method === "Log.entryAdded" && params.entry.level === "error"));
    same("errors of the page", wrong.map(({params}) => params.exceptionDetails?.exception?.description ?? params.exceptionDetails?.text ?? params.entry.text), []);
    const asked = events.filter(({method, params}) => method === "Network.requestWillBeSent" && /^(https?|wss?):/.test(params.request.url));
    same("what it asked a network for", asked.map(({params}) => params.request.url), []);
}

main().catch((error) => { ++failures; console.log(error.stack); }).finally(() => {
    browser.once("exit", () => {
        fs.rmSync(profile, {recursive: true, force: true, maxRetries: 5, retryDelay: 100});
        console.log(failures ? `${failures} failures` : "the page works");
        process.exit(failures ? 1 : 0);
    });
    browser.kill();
});
