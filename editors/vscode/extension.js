// Starts the language server and the debugger of the command `kestrel`.
const vscode = require('vscode');
const {LanguageClient} = require('vscode-languageclient/node');

let client;

function command() {
    return vscode.workspace.getConfiguration('kestrel').get('path') || 'kestrel';
}

function settings() {
    const {records, functions, includePath} = vscode.workspace.getConfiguration('kestrel');
    const given = {};
    if (records) given.records = records;
    if (functions) given.functions = functions;
    if (includePath && includePath.length > 0) given.includePath = includePath;
    return given;
}

async function activate(context) {
    context.subscriptions.push(vscode.debug.registerDebugAdapterDescriptorFactory('kestrel', {
        createDebugAdapterDescriptor: () =>
            new vscode.DebugAdapterExecutable(command(), ['debug', '--dap']),
    }));
    context.subscriptions.push(vscode.debug.registerDebugConfigurationProvider('kestrel', {
        // Without a launch configuration, debugs the script that is open.
        resolveDebugConfiguration(folder, configuration) {
            if (configuration.type) return configuration;
            const editor = vscode.window.activeTextEditor;
            if (!editor || editor.document.languageId !== 'kestrel') return null;
            return {type: 'kestrel', request: 'launch', name: 'This script',
                    program: editor.document.fileName, stopOnEntry: true};
        },
    }));
    client = new LanguageClient('kestrel', 'Kestrel', {command: command(), args: ['lsp']}, {
        documentSelector: [{language: 'kestrel'}],
        initializationOptions: settings(),
        synchronize: {
            configurationSection: 'kestrel',
            fileEvents: vscode.workspace.createFileSystemWatcher('**/*.ks'),
        },
    });
    await client.start();
}

function deactivate() {
    return client ? client.stop() : undefined;
}

module.exports = {activate, deactivate};
