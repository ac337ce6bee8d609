// Talks with a server through the protocol's own client. Standard input is one JSON object:
//   command, args, env  how the server is started; without env, in the client's own surroundings
//   calls               the tools to call, one after another: {name, arguments}
// Standard output is one: server (what it says of itself), tools (as listed), results (of the
// calls), errors (what the client could not understand).
import { text } from 'node:stream/consumers';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const { command, args, env, calls } = JSON.parse(await text(process.stdin));
const errors = [];
const client = new Client({ name: 'lenslark-tests', version: '1.0.0' });
client.onerror = (error) => errors.push(String(error));

await client.connect(new StdioClientTransport({ command, args, env, stderr: 'inherit' }));
const { tools } = await client.listTools();
await client.ping();
const results = [];
for (const call of calls) results.push(await client.callTool(call));
const server = {
  info: client.getServerVersion(),
  capabilities: client.getServerCapabilities(),
  instructions: client.getInstructions(),
};
await client.close();
process.stdout.write(JSON.stringify({ server, tools, results, errors }));
