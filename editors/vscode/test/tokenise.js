// Reads every sample of the project with the grammar, as the editor does: no part of a script that
// compiles may be without a scope of its own.
const fs = require('fs');
const path = require('path');
const oniguruma = require('vscode-oniguruma');
const textmate = require('vscode-textmate');

const extension = path.join(__dirname, '..');
const root = path.join(extension, '..', '..');

function filesBelow(folder, suffix) {
    return fs.readdirSync(folder, {withFileTypes: true}).flatMap((entry) => {
        const file = path.join(folder, entry.name);
        if (entry.isDirectory()) return filesBelow(file, suffix);
        return file.endsWith(suffix) ? [file] : [];
    });
}

// The scripts of a file of cases, except for those that do not compile.
function casesIn(file) {
    const samples = [];
    for (const block of fs.readFileSync(file, 'latin1').split(/^=== /m).slice(1)) {
        const [title, ...lines] = block.split('\n');
        const end = lines.findIndex((line) => line.startsWith('---'));
        const isGood = !/^--- errors?$/m.test(block);
        if (isGood && end > 0) samples.push({name: `${file}: ${title}`, text: lines.slice(0, end).join('\n')});
    }
    return samples;
}

// The scripts in a page of the manual, except for those that do not compile.
function blocksIn(file) {
    const samples = [];
    const text = fs.readFileSync(file, 'utf8');
    for (const match of text.matchAll(/^```kestrel[^\n]*\n([^]*?)^```$(\n```output\n[^]*?^```$)?/gm)) {
        if (!(match[2] || '').includes('error[')) samples.push({name: `${file}:${match.index}`, text: match[1]});
    }
    return samples;
}

function samples() {
    const found = [];
    for (const file of filesBelow(path.join(root, 'examples'), '.ks')) {
        found.push({name: file, text: fs.readFileSync(file, 'utf8')});
    }
    for (const folder of ['tests', 'modules', 'examples']) {
        for (const file of filesBelow(path.join(root, folder), '.cases')) found.push(...casesIn(file));
    }
    // Of the pages about messages, half of the scripts are wrong.
    const pages = filesBelow(path.join(root, 'docs'), '.md').filter((file) => !file.endsWith('messages.md'));
    for (const file of pages) found.push(...blocksIn(file));
    return found;
}

const expected = [
    ['function Decimal perMinute(String zone) {', 'perMinute', 'entity.name.function.kestrel'],
    ['use text;', 'text', 'entity.name.namespace.kestrel'],
    ['s = text::find("a", b);', 'find', 'support.function.module.kestrel'],
    ['n = strLength("a\\"b");', 'strLength', 'support.function.kestrel'],
    ['n = strLength("a\\"b");', '\\"', 'constant.character.escape.kestrel'],
    ['call.if = 1;', 'call.if', 'variable.other.kestrel'],
    ['if (a and b == 1.5) {', 'and', 'keyword.operator.logical.kestrel'],
    ['include "lib.ks";', 'include', 'keyword.control.import.kestrel'],
    ['a = 1; // if', '// if', 'comment.line.double-slash.kestrel'],
];

async function main() {
    const wasm = path.join(path.dirname(require.resolve('vscode-oniguruma')), 'onig.wasm');
    await oniguruma.loadWASM(fs.readFileSync(wasm).buffer);
    const file = path.join(extension, 'syntaxes', 'kestrel.tmLanguage.json');
    const registry = new textmate.Registry({
        onigLib: Promise.resolve({
            createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
            createOnigString: (text) => new oniguruma.OnigString(text),
        }),
        loadGrammar: async () => textmate.parseRawGrammar(fs.readFileSync(file, 'utf8'), file),
    });
    const grammar = await registry.loadGrammar('source.kestrel');
    let tokens = 0;
    let faults = 0;
    const fault = (text) => {
        if (++faults <= 20) console.error(text);
    };
    const all = samples();
    for (const sample of all) {
        let stack = textmate.INITIAL;
        sample.text.split('\n').forEach((line, number) => {
            const result = grammar.tokenizeLine(line, stack);
            stack = result.ruleStack;
            for (const token of result.tokens) {
                const text = line.slice(token.startIndex, token.endIndex);
                ++tokens;
                if (token.scopes.length === 1 && text.trim() !== '') {
                    fault(`${sample.name}, line ${number + 1}: no scope for ${JSON.stringify(text)}`);
                }
            }
        });
    }
    for (const [line, text, scope] of expected) {
        const found = grammar.tokenizeLine(line, textmate.INITIAL).tokens.find(
            (token) => line.slice(token.startIndex, token.endIndex).trim() === text);
        if (!found || !found.scopes.includes(scope)) {
            fault(`${line}: ${text} is ${found ? found.scopes.join(' ') : 'no token'}, not ${scope}`);
        }
    }
    console.log(`${all.length} samples, ${tokens} tokens, ${faults} faults`);
    process.exitCode = faults === 0 && all.length > 100 ? 0 : 1;
}

main();
