// Holds what a server sent against the schemas of the protocol. Standard input is one JSON array of
// {method, line}: a request's method, and the line that answered it. Standard output is one array
// of complaints, empty when all is well.
//
// The schemas are those of the protocol's own library, made strict: a member that they do not name
// is a fault, and so is one that only revisions after 2025-06-18 have.
import { text } from 'node:stream/consumers';
import { Ajv2020 } from 'ajv/dist/2020.js';
import * as protocol from '@modelcontextprotocol/sdk/types.js';
import { toJSONSchema } from 'zod';

function strict(schema) {
  if (Array.isArray(schema)) return schema.forEach(strict);
  if (schema === null || typeof schema !== 'object') return;
  if (schema.properties) schema.additionalProperties = false;
  for (const [key, part] of Object.entries(schema.properties ?? {})) {
    // What a tool takes is a schema of its own and may say what it likes.
    if (key !== 'inputSchema' && key !== 'outputSchema') strict(part);
  }
  for (const keyword of ['anyOf', 'oneOf', 'allOf', 'items']) strict(schema[keyword]);
}

function remove(schema, ...members) {
  for (const member of members) {
    if (!schema.properties[member]) throw new Error(`the library knows no ${member} any more`);
    delete schema.properties[member];
  }
}

const schemas = {
  error: protocol.JSONRPCErrorResponseSchema,
  envelope: protocol.JSONRPCResultResponseSchema,
  initialize: protocol.InitializeResultSchema,
  ping: protocol.EmptyResultSchema,
  'tools/list': protocol.ListToolsResultSchema,
  'tools/call': protocol.CallToolResultSchema,
};
const described = Object.fromEntries(Object.entries(schemas).map(
  ([name, schema]) => [name, toJSONSchema(schema, { io: 'input', unrepresentable: 'any' })]));

const { initialize } = described;
remove(initialize.properties.capabilities, 'tasks', 'extensions');
remove(initialize.properties.serverInfo, 'icons', 'websiteUrl', 'description');
remove(described['tools/list'].properties.tools.items, 'icons', 'execution');
described['tools/call'].required = ['content'];
described.error.required = ['jsonrpc', 'id', 'error'];

const ajv = new Ajv2020({ strict: false, validateFormats: false });
const validators = Object.fromEntries(Object.entries(described).map(([name, schema]) => {
  // The result inside an envelope is looked at by itself.
  if (name !== 'envelope') strict(schema);
  return [name, ajv.compile(schema)];
}));

function faults(name, value) {
  const parsed = schemas[name].safeParse(value);
  const validate = validators[name];
  return [
    ...(parsed.success ? [] : parsed.error.issues.map((issue) => `${issue.path}: ${issue.message}`)),
    ...(validate(value) ? [] : validate.errors.map((error) =>
      `${error.instancePath}: ${error.message} ${JSON.stringify(error.params)}`)),
  ].map((fault) => `${name}: ${fault}`);
}

function complaints({ method, line }) {
  let message;
  try {
    message = JSON.parse(line);
  } catch (error) {
    return [String(error)];
  }
  if ('error' in message) return faults('error', message);
  const result = faults('envelope', message);
  if (!(method in schemas)) return [...result, `${method} has no result in this protocol`];
  if (method === 'tools/list') {
    for (const tool of message.result?.tools ?? []) new Ajv2020().compile(tool.inputSchema);
  }
  return [...result, ...faults(method, message.result)];
}

const answers = JSON.parse(await text(process.stdin));
process.stdout.write(JSON.stringify(answers.flatMap((answer) =>
  complaints(answer).map((complaint) => `${complaint} in ${answer.line.slice(0, 200)}`))));
