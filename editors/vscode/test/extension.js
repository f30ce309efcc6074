// Starts the extension with a stand-in for the editor, and looks at what it would start.
const assert = require('assert');
const fs = require('fs');
const Module = require('module');
const path = require('path');

const started = [];
const registered = {};
const configuration = {path: '/opt/kestrel', records: 'calls.csv', functions: '', includePath: []};
const stubs = {
    vscode: {
        workspace: {
            getConfiguration: () => ({...configuration, get: (name) => configuration[name]}),
            createFileSystemWatcher: (pattern) => pattern,
        },
        window: {activeTextEditor: {document: {languageId: 'kestrel', fileName: 'a.ks'}}},
        debug: {
            registerDebugAdapterDescriptorFactory: (type, factory) => (registered.adapter = factory),
            registerDebugConfigurationProvider: (type, provider) => (registered.provider = provider),
        },
        DebugAdapterExecutable: class {
            constructor(command, args) {
                Object.assign(this, {command, args});
            }
        },
    },
    'vscode-languageclient/node': {
        LanguageClient: class {
            constructor(id, name, server, client) {
                started.push({server, client});
            }
            async start() {}
            stop() {
                started.pop();
            }
        },
    },
};
const load = Module._load;
Module._load = (name, ...rest) => stubs[name] || load(name, ...rest);

async function main() {
    const extension = require('../extension.js');
    await extension.activate({subscriptions: []});
    assert.deepStrictEqual(started[0].server, {command: '/opt/kestrel', args: ['lsp']});
    assert.deepStrictEqual(started[0].client.initializationOptions, {records: 'calls.csv'});
    assert.deepStrictEqual({...registered.adapter.createDebugAdapterDescriptor()},
                           {command: '/opt/kestrel', args: ['debug', '--dap']});
    assert.strictEqual(registered.provider.resolveDebugConfiguration(null, {}).program, 'a.ks');
    extension.deactivate();
    assert.strictEqual(started.length, 0);

    // What the manifest names exists.
    const folder = path.join(__dirname, '..');
    const manifest = JSON.parse(fs.readFileSync(path.join(folder, 'package.json'), 'utf8'));
    const {grammars, languages} = manifest.contributes;
    for (const file of [manifest.main, grammars[0].path, languages[0].configuration]) {
        assert.ok(fs.existsSync(path.join(folder, file)), file);
    }
    JSON.parse(fs.readFileSync(path.join(folder, languages[0].configuration), 'utf8'));
    console.log('the extension starts the server and the debugger');
}

main().catch((error) => {
    console.error(error);
    process.exitCode = 1;
});
